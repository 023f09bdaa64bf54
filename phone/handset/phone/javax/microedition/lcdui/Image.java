package javax.microedition.lcdui;

import handset.Platform;
import java.io.IOException;

public class Image {
    private final Object picture;

    private Image(Object picture) {
        this.picture = picture;
    }

    public static Image createImage(byte[] data, int offset, int length) {
        Object picture = Platform.current().decode(data, offset, length);
        if (picture == null) {
            throw new IllegalArgumentException("no picture that this phone knows");
        }
        return new Image(picture);
    }

    public static Image createImage(String name) throws IOException {
        byte[] data = Platform.current().resource(name);
        if (data == null) {
            throw new IOException(name);
        }
        return createImage(data, 0, data.length);
    }

    public int getWidth() {
        return Platform.current().widthOf(picture);
    }

    public int getHeight() {
        return Platform.current().heightOf(picture);
    }

    Object picture() {
        return picture;
    }
}
