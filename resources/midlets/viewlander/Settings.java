import javax.microedition.lcdui.Choice;
import javax.microedition.lcdui.ChoiceGroup;
import javax.microedition.lcdui.Form;

/** What the person sets about the pictures: how good, how large, how often. */
final class Settings {
    private static final int[] QUALITY = {80, 50, 25};
    private static final int[] PERCENT = {100, 75, 50};
    private static final int[] SPEED = {1, 2, 5, 10};
    /** Pictures to a connection, for networks that cut long ones; 0 keeps it. */
    private static final int[] LIMIT = {0, 100, 500};

    final Form screen;
    private final ChoiceGroup quality;
    private final ChoiceGroup size;
    private final ChoiceGroup speed;
    private final ChoiceGroup limit;
    private int[] accepted = {1, 0, 2, 0};

    Settings(Manifest manifest) {
        screen = new Form(manifest.text("screen_settings"));
        quality = group(manifest.text("set_imgquality"));
        String[] names = {"set_high", "set_normal", "set_low"};
        for (int i = 0; i < names.length; ++i) {
            quality.append(manifest.text(names[i]), null);
        }
        size = numbers(manifest.text("set_framesize"), PERCENT, " %");
        speed = numbers(manifest.text("set_desirespeed"), SPEED, "");
        limit = numbers(manifest.text("set_interframefq"), LIMIT, "");
        cancel();
    }

    private ChoiceGroup group(String label) {
        ChoiceGroup group = new ChoiceGroup(label, Choice.EXCLUSIVE);
        screen.append(group);
        return group;
    }

    private ChoiceGroup numbers(String label, int[] values, String unit) {
        ChoiceGroup group = group(label);
        for (int i = 0; i < values.length; ++i) {
            group.append(values[i] == 0 ? "-" : Integer.toString(values[i]).concat(unit), null);
        }
        return group;
    }

    private ChoiceGroup[] groups() {
        return new ChoiceGroup[] {quality, size, speed, limit};
    }

    void accept() {
        ChoiceGroup[] groups = groups();
        for (int i = 0; i < groups.length; ++i) {
            accepted[i] = groups[i].getSelectedIndex();
        }
    }

    void cancel() {
        ChoiceGroup[] groups = groups();
        for (int i = 0; i < groups.length; ++i) {
            groups[i].setSelectedIndex(accepted[i], true);
        }
    }

    /** The parameters of a request for pictures that fit a screen. */
    String parameters(int screenWidth, int screenHeight, View view) {
        StringBuffer text = new StringBuffer("width=").append(screenWidth * PERCENT[accepted[1]] / 100);
        text.append("&height=").append(screenHeight * PERCENT[accepted[1]] / 100);
        text.append("&fps=").append(SPEED[accepted[2]]);
        text.append("&flimit=").append(LIMIT[accepted[3]]);
        text.append("&quality=").append(QUALITY[accepted[0]]);
        return view.appendTo(text).toString();
    }
}
