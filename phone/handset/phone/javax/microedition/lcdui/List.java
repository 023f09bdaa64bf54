package javax.microedition.lcdui;


public class List extends Screen implements Choice {
    public static final Command SELECT_COMMAND = new Command("", Command.SCREEN, 0);

    private final ChoiceGroup entries = new ChoiceGroup(null, IMPLICIT);

    public List(String title, int type) {
        super(title);
    }

    public int append(String text, Image picture) {
        return entries.append(text, picture);
    }

    public int size() {
        return entries.size();
    }

    public int getSelectedIndex() {
        return entries.getSelectedIndex();
    }

    public void setSelectedIndex(int index, boolean selected) {
        entries.setSelectedIndex(index, selected);
    }

    public String getString(int index) {
        return entries.getString(index);
    }

    String content() {
        StringBuffer content = new StringBuffer();
        for (int i = 0; i < entries.size(); ++i) {
            content.append(entries.getString(i)).append('\n');
        }
        return content.toString();
    }

    boolean choose(String text) {
        if (!entries.choose(text)) {
            return false;
        }
        fire(SELECT_COMMAND);
        return true;
    }
}
