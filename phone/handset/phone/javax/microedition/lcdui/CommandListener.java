package javax.microedition.lcdui;

public interface CommandListener {
    void commandAction(Command command, Displayable screen);
}
