package javax.microedition.lcdui;

public abstract class Screen extends Displayable {
    Screen(String title) {
        super(title);
    }
}
