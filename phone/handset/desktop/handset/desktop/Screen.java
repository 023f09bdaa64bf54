package handset.desktop;

import java.awt.Color;
import java.awt.Font;
import java.awt.FontMetrics;
import java.awt.Graphics2D;
import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import javax.imageio.ImageIO;

/** The pixels of the phone's screen. Used by the screen's thread alone, but for the measures of text. */
final class Screen {
    private final BufferedImage pixels;
    private final Graphics2D graphics;
    private final FontMetrics metrics;
    private final Path folder;
    private boolean drawn;
    private int painted;

    Screen(int width, int height, String folder) throws UsageException {
        pixels = new BufferedImage(width, height, BufferedImage.TYPE_INT_RGB);
        graphics = pixels.createGraphics();
        graphics.setFont(new Font(Font.SANS_SERIF, Font.PLAIN, 12));
        metrics = graphics.getFontMetrics();
        this.folder = folder == null ? null : Path.of(folder);
        try {
            if (this.folder != null) {
                Files.createDirectories(this.folder);
            }
        } catch (IOException refused) {
            throw new UsageException(folder + " cannot be made: " + refused.getMessage());
        }
    }

    int width() {
        return pixels.getWidth();
    }

    int height() {
        return pixels.getHeight();
    }

    FontMetrics metrics() {
        return metrics;
    }

    void fill(int x, int y, int width, int height, int rgb) {
        graphics.setColor(new Color(rgb));
        graphics.fillRect(x, y, width, height);
    }

    /** A picture on the screen; one that was not there before makes this painting a new frame. */
    void draw(BufferedImage picture, int x, int y, boolean isNew) {
        graphics.drawImage(picture, x, y, null);
        drawn |= isNew;
    }

    void write(String text, int x, int y, int rgb) {
        graphics.setColor(new Color(rgb));
        graphics.drawString(text, x, y + metrics.getAscent());
    }

    /** Ends a painting. Gives true, with the picture in its file, when there was something new to see. */
    boolean painted() throws IOException {
        if (!drawn) {
            return false;
        }
        drawn = false;
        ++painted;
        if (folder != null) {
            ImageIO.write(pixels, "png", folder.resolve(String.format("%04d.png", painted)).toFile());
        }
        return true;
    }
}
