import javax.microedition.lcdui.Canvas;
import javax.microedition.lcdui.Graphics;
import javax.microedition.lcdui.Image;

/** Shows the newest picture, and a word over it when there is something to say. */
final class VideoScreen extends Canvas {
    private static final int BLACK = 0;
    private static final int WHITE = 0xFFFFFF;
    private static final int MARGIN = 2;

    /** Told of the direction keys. */
    interface Mover {
        void moved(int x, int y);
    }

    private final Mover mover;
    private Image picture;
    private String word = "";

    VideoScreen(Mover mover) {
        this.mover = mover;
    }

    synchronized void show(Image next) {
        picture = next;
        word = "";
        repaint();
    }

    synchronized void say(String next) {
        word = next;
        repaint();
    }

    /** Another source: what was seen of the last one goes. */
    synchronized void clear(String next) {
        picture = null;
        say(next);
    }

    protected synchronized void paint(Graphics g) {
        g.setColor(BLACK);
        g.fillRect(0, 0, getWidth(), getHeight());
        if (picture != null) {
            g.drawImage(picture, getWidth() / 2, getHeight() / 2, Graphics.HCENTER | Graphics.VCENTER);
        }
        if (word.length() > 0) {
            g.setColor(WHITE);
            g.drawString(word, getWidth() / 2, getHeight() - MARGIN, Graphics.HCENTER | Graphics.BOTTOM);
        }
    }

    protected void keyPressed(int keyCode) {
        switch (getGameAction(keyCode)) {
        case LEFT:
            mover.moved(-1, 0);
            break;
        case RIGHT:
            mover.moved(1, 0);
            break;
        case UP:
            mover.moved(0, -1);
            break;
        case DOWN:
            mover.moved(0, 1);
            break;
        default:
            break;
        }
    }
}
