import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.util.Vector;

/** What the server lets this phone watch: one line for each source, its key, a tab and its name, in UTF-8. */
final class CameraList {
    private static final int LONGEST = 65536;

    private final Vector keys = new Vector();
    private final Vector names = new Vector();

    static CameraList load(Server server, String resource) throws IOException {
        Link link = server.request("GET", resource);
        try {
            int status = link.readHead();
            if (status != 200) {
                throw new IOException(Integer.toString(status));
            }
            ByteArrayOutputStream body = new ByteArrayOutputStream();
            byte[] piece = new byte[512];
            for (int count = link.in.read(piece); count > 0; count = link.in.read(piece)) {
                body.write(piece, 0, count);
                if (body.size() > LONGEST) {
                    throw new IOException("endless list");
                }
            }
            return new CameraList(Encoding.fromUtf8(body.toByteArray(), 0, body.size()));
        } finally {
            link.close();
        }
    }

    private CameraList(String text) {
        for (int at = 0; at < text.length();) {
            int end = text.indexOf('\n', at);
            if (end < 0) {
                end = text.length();
            }
            String line = text.substring(at, end).trim();
            at = end + 1;
            int tab = line.indexOf('\t');
            if (line.length() > 0) {
                keys.addElement(tab < 0 ? line : line.substring(0, tab));
                names.addElement(tab < 0 ? line : line.substring(tab + 1));
            }
        }
    }

    int size() {
        return keys.size();
    }

    String key(int index) {
        return (String) keys.elementAt(index);
    }

    String name(int index) {
        return (String) names.elementAt(index);
    }
}
