package javax.microedition.lcdui;

/** A short word to the person; its command, or its time, leads to the screen behind it. */
public class Alert extends Screen {
    public static final int FOREVER = -2;
    public static final Command DISMISS_COMMAND = new Command("OK", Command.OK, 0);

    private final String text;
    private final AlertType type;

    public Alert(String title, String text, Image picture, AlertType type) {
        super(title);
        this.text = text;
        this.type = type;
    }

    public String getString() {
        return text;
    }

    public AlertType getType() {
        return type;
    }

    public void setTimeout(int milliseconds) {}

    void setNext(final Display display, final Displayable next) {
        addCommand(DISMISS_COMMAND);
        setCommandListener(new CommandListener() {
            public void commandAction(Command command, Displayable screen) {
                display.setCurrent(next);
            }
        });
    }

    String content() {
        return text;
    }
}
