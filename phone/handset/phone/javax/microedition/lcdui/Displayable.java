package javax.microedition.lcdui;

import handset.Platform;
import handset.ScreenView;
import java.util.Vector;

/** What can be on the screen: a title, and commands with a listener. */
public abstract class Displayable {
    private String title;
    private final Vector commands = new Vector();
    private CommandListener listener;
    private final ScreenView view = new View();

    Displayable(String title) {
        this.title = title;
    }

    public void setTitle(String title) {
        this.title = title;
        Platform.current().changed(view);
    }

    public String getTitle() {
        return title;
    }

    public void addCommand(Command command) {
        commands.addElement(command);
    }

    public void removeCommand(Command command) {
        commands.removeElement(command);
    }

    public void setCommandListener(CommandListener listener) {
        this.listener = listener;
    }

    public int getWidth() {
        return Platform.current().screenWidth();
    }

    public int getHeight() {
        return Platform.current().screenHeight();
    }

    public boolean isShown() {
        return Platform.current().isShown(view);
    }

    final ScreenView view() {
        return view;
    }

    /** What a person reads on the screen besides its title. */
    String content() {
        return "";
    }

    /** Chooses the item of that text, as a person's key would; false where there is none. */
    boolean choose(String text) {
        return false;
    }

    void shown(boolean nowShown) {}

    final void fire(Command command) {
        if (listener != null) {
            listener.commandAction(command, this);
        }
    }

    private class View implements ScreenView {
        public String title() {
            return title;
        }

        public String content() {
            return Displayable.this.content();
        }

        public boolean isError() {
            return Displayable.this instanceof Alert && ((Alert) Displayable.this).getType() == AlertType.ERROR;
        }

        public boolean press(String label) {
            for (int i = 0; i < commands.size(); ++i) {
                Command command = (Command) commands.elementAt(i);
                if (command.getLabel().equals(label)) {
                    fire(command);
                    return true;
                }
            }
            return false;
        }

        public boolean choose(String text) {
            return Displayable.this.choose(text);
        }

        public void shown(boolean nowShown) {
            Displayable.this.shown(nowShown);
        }
    }
}
