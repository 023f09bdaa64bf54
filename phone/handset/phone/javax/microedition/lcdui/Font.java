package javax.microedition.lcdui;

import handset.Platform;

public final class Font {
    private static final Font THE_ONE = new Font();

    private Font() {}

    public static Font getDefaultFont() {
        return THE_ONE;
    }

    public int getHeight() {
        return Platform.current().textHeight();
    }

    public int stringWidth(String text) {
        return Platform.current().textWidth(text);
    }
}
