package javax.microedition.lcdui;

import handset.Platform;
import javax.microedition.midlet.MIDlet;

/** The one screen of the phone. */
public class Display {
    private static final Display THE_ONE = new Display();

    private Displayable current;

    private Display() {}

    public static Display getDisplay(MIDlet program) {
        return THE_ONE;
    }

    public Displayable getCurrent() {
        return current;
    }

    public void setCurrent(Displayable next) {
        current = next;
        Platform.current().show(next.view());
    }

    public void setCurrent(Alert alert, Displayable next) {
        alert.setNext(this, next);
        setCurrent(alert);
    }

    public void callSerially(Runnable task) {
        Platform.current().post(task);
    }
}
