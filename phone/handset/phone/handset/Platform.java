package handset;

import java.io.IOException;
import javax.microedition.io.SocketConnection;

/**
 * What the phone's classes need of the machine under them. The classes above it are written for the phone's own small
 * library alone; what stands behind it is a desktop's.
 */
public abstract class Platform {
    private static Platform current;

    public static Platform current() {
        return current;
    }

    public static void install(Platform platform) {
        current = platform;
    }

    // The program.
    public abstract void created(Program program);

    public abstract void destroyed();

    /** The manifest's value, or null. */
    public abstract String property(String key);

    /** The bytes of an entry of the program's archive, or null. */
    public abstract byte[] resource(String name);

    // The network.
    public abstract SocketConnection openSocket(String host, int port) throws IOException;

    // The camera.
    public abstract boolean hasCamera(String locator);

    /** The next picture, in the form that `imageType` asks for ("encoding=jpeg&width=320&height=240"), or null. */
    public abstract byte[] snapshot(String imageType);

    // The screen. Tasks run one after another on the screen's thread.
    public abstract void post(Runnable task);

    public abstract void show(ScreenView view);

    public abstract void changed(ScreenView view);

    public abstract boolean isShown(ScreenView view);

    public abstract int screenWidth();

    public abstract int screenHeight();

    /** A painting is complete. */
    public abstract void painted();

    // Pictures and text.
    public abstract Object decode(byte[] data, int offset, int length);

    public abstract int widthOf(Object picture);

    public abstract int heightOf(Object picture);

    public abstract int textHeight();

    public abstract int textWidth(String text);

    public abstract void fill(int x, int y, int width, int height, int rgb);

    public abstract void draw(Object picture, int x, int y);

    public abstract void write(String text, int x, int y, int rgb);
}
