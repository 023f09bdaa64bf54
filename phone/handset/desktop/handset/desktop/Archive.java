package handset.desktop;

import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.io.InputStream;
import java.nio.charset.StandardCharsets;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.Locale;
import java.util.Map;
import java.util.zip.ZipEntry;
import java.util.zip.ZipFile;

/**
 * The midlet's archive: its classes, its pictures and its manifest. The desktop's own reader of manifests takes lines of
 * at most 512 bytes and may refuse what a phone takes, so the lines are read here: "Key: value", of any length, UTF-8.
 */
final class Archive extends ClassLoader {
    private final ZipFile zip;
    private final Map<String, String> manifest = new HashMap<>();

    Archive(Path path) throws UsageException {
        super(Archive.class.getClassLoader());
        try {
            zip = new ZipFile(path.toFile());
            int manifests = 0;
            for (ZipEntry entry : zip.stream().toList()) {
                if (entry.getName().toLowerCase(Locale.ROOT).equals("meta-inf/manifest.mf")) {
                    ++manifests;
                    readManifest(bytesOf(entry));
                }
            }
            if (manifests != 1) {
                throw new UsageException(path + " holds " + manifests + " manifests, where there has to be one");
            }
        } catch (IOException unreadable) {
            throw new UsageException(path + " is no archive that can be read: " + unreadable.getMessage());
        }
    }

    private void readManifest(byte[] bytes) {
        for (String line : new String(bytes, StandardCharsets.UTF_8).split("\r\n|\n|\r")) {
            int colon = line.indexOf(": ");
            if (colon > 0) {
                manifest.put(line.substring(0, colon), line.substring(colon + 2));
            }
        }
    }

    String property(String key) {
        return manifest.get(key);
    }

    /** The class that "MIDlet-1: name, icon, class" names. */
    String programClass() throws UsageException {
        String program = manifest.get("MIDlet-1");
        String[] fields = program == null ? new String[0] : program.split(",");
        if (fields.length < 3) {
            throw new UsageException("the manifest names no midlet");
        }
        return fields[fields.length - 1].trim();
    }

    private byte[] bytesOf(ZipEntry entry) throws IOException {
        try (InputStream in = zip.getInputStream(entry)) {
            return in.readAllBytes();
        }
    }

    /** The bytes of an entry, or null; a leading "/" is the archive's root. */
    byte[] resource(String name) {
        ZipEntry entry = zip.getEntry(name.startsWith("/") ? name.substring(1) : name);
        try {
            return entry == null ? null : bytesOf(entry);
        } catch (IOException damaged) {
            return null;
        }
    }

    @Override
    public InputStream getResourceAsStream(String name) {
        byte[] bytes = resource(name);
        return bytes == null ? null : new ByteArrayInputStream(bytes);
    }

    @Override
    protected Class<?> findClass(String name) throws ClassNotFoundException {
        byte[] bytes = resource(name.replace('.', '/') + ".class");
        if (bytes == null) {
            throw new ClassNotFoundException(name);
        }
        return defineClass(name, bytes, 0, bytes.length);
    }
}
