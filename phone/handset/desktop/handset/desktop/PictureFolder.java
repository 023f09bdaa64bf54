package handset.desktop;

import java.awt.Graphics2D;
import java.awt.RenderingHints;
import java.awt.image.BufferedImage;
import java.io.ByteArrayInputStream;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.nio.file.DirectoryStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import javax.imageio.ImageIO;

/** What a camera sees: the pictures of a folder in the order of their names, over and over. */
final class PictureFolder {
    private final List<byte[]> pictures = new ArrayList<>();
    private int next;

    PictureFolder(String folder) throws UsageException {
        List<Path> paths = new ArrayList<>();
        try (DirectoryStream<Path> files = Files.newDirectoryStream(Path.of(folder), "*.{jpg,jpeg,JPG}")) {
            files.forEach(paths::add);
            Collections.sort(paths);
            for (Path path : paths) {
                pictures.add(Files.readAllBytes(path));
            }
        } catch (IOException unreadable) {
            throw new UsageException(folder + " cannot be read: " + unreadable.getMessage());
        }
        if (pictures.isEmpty()) {
            throw new UsageException(folder + " holds no *.jpg file");
        }
    }

    /** The next picture; one of another size than "width=..&height=.." asks for is scaled, as a camera would. */
    synchronized byte[] snapshot(String imageType) throws IOException {
        byte[] picture = pictures.get(next);
        next = (next + 1) % pictures.size();
        Map<String, String> wanted = new HashMap<>();
        for (String item : imageType.split("&")) {
            int equals = item.indexOf('=');
            if (equals > 0) {
                wanted.put(item.substring(0, equals), item.substring(equals + 1));
            }
        }
        if (!"jpeg".equals(wanted.get("encoding"))) {
            return null;
        }
        BufferedImage seen = ImageIO.read(new ByteArrayInputStream(picture));
        int width = side(wanted.get("width"), seen.getWidth());
        int height = side(wanted.get("height"), seen.getHeight());
        return seen.getWidth() == width && seen.getHeight() == height ? picture : scaled(seen, width, height);
    }

    private static int side(String text, int otherwise) {
        try {
            int side = text == null ? otherwise : Integer.parseInt(text);
            return side > 0 && side <= 4096 ? side : otherwise;
        } catch (NumberFormatException noNumber) {
            return otherwise;
        }
    }

    private static byte[] scaled(BufferedImage seen, int width, int height) throws IOException {
        BufferedImage scaled = new BufferedImage(width, height, BufferedImage.TYPE_INT_RGB);
        Graphics2D graphics = scaled.createGraphics();
        graphics.setRenderingHint(RenderingHints.KEY_INTERPOLATION, RenderingHints.VALUE_INTERPOLATION_BILINEAR);
        graphics.drawImage(seen, 0, 0, width, height, null);
        graphics.dispose();
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        ImageIO.write(scaled, "jpeg", bytes);
        return bytes.toByteArray();
    }
}
