package javax.microedition.lcdui;

import handset.Platform;

/** A screen that its program draws. */
public abstract class Canvas extends Displayable {
    public static final int UP = 1;
    public static final int LEFT = 2;
    public static final int RIGHT = 5;
    public static final int DOWN = 6;
    public static final int FIRE = 8;

    protected Canvas() {
        super(null);
    }

    protected abstract void paint(Graphics g);

    protected void showNotify() {}

    protected void hideNotify() {}

    protected void keyPressed(int keyCode) {}

    public int getGameAction(int keyCode) {
        return keyCode;
    }

    public void setFullScreenMode(boolean full) {}

    public final void repaint() {
        Platform.current().post(new Runnable() {
            public void run() {
                if (isShown()) {
                    paint(new Graphics());
                    Platform.current().painted();
                }
            }
        });
    }

    void shown(boolean nowShown) {
        if (nowShown) {
            showNotify();
            repaint();
        } else {
            hideNotify();
        }
    }
}
