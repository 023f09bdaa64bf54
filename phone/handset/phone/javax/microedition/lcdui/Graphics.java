package javax.microedition.lcdui;

import handset.Platform;

/** Draws on the screen. */
public class Graphics {
    public static final int HCENTER = 1;
    public static final int VCENTER = 2;
    public static final int LEFT = 4;
    public static final int RIGHT = 8;
    public static final int TOP = 16;
    public static final int BOTTOM = 32;
    public static final int BASELINE = 64;

    private int colour;

    Graphics() {}

    public void setColor(int rgb) {
        colour = rgb;
    }

    public void fillRect(int x, int y, int width, int height) {
        Platform.current().fill(x, y, width, height, colour);
    }

    public void drawRect(int x, int y, int width, int height) {
        fillRect(x, y, width, 1);
        fillRect(x, y + height, width + 1, 1);
        fillRect(x, y, 1, height);
        fillRect(x + width, y, 1, height);
    }

    public void drawImage(Image image, int x, int y, int anchor) {
        Platform.current().draw(image.picture(), left(x, image.getWidth(), anchor), top(y, image.getHeight(), anchor));
    }

    public void drawString(String text, int x, int y, int anchor) {
        Font font = Font.getDefaultFont();
        Platform.current().write(text, left(x, font.stringWidth(text), anchor), top(y, font.getHeight(), anchor),
                                 colour);
    }

    private static int left(int x, int width, int anchor) {
        return (anchor & HCENTER) != 0 ? x - width / 2 : (anchor & RIGHT) != 0 ? x - width : x;
    }

    private static int top(int y, int height, int anchor) {
        return (anchor & VCENTER) != 0 ? y - height / 2 : (anchor & (BOTTOM | BASELINE)) != 0 ? y - height : y;
    }
}
