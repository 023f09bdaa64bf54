import java.io.DataInputStream;
import java.io.IOException;
import java.io.OutputStream;
import javax.microedition.io.SocketConnection;

/** One connection to the server. */
final class Link {
    final DataInputStream in;
    final OutputStream out;
    private final SocketConnection connection;

    Link(SocketConnection connection) throws IOException {
        this.connection = connection;
        in = connection.openDataInputStream();
        out = connection.openOutputStream();
    }

    /**
     * Reads the head of an answer and gives its status number. What is no head gives a failure, as does one that does
     * not end within 4096 bytes.
     */
    int readHead() throws IOException {
        StringBuffer line = new StringBuffer();
        int status = 0;
        for (int count = 0; count < 4096; ++count) {
            int next = in.read();
            if (next < 0) {
                throw new IOException("no answer");
            }
            if (next == '\n') {
                if (status == 0) {
                    status = statusOf(line.toString());
                } else if (line.length() == 0) {
                    return status;
                }
                line.setLength(0);
            } else if (next != '\r') {
                line.append((char) next);
            }
        }
        throw new IOException("endless answer");
    }

    /** The number in "HTTP/1.0 200 OK". */
    private static int statusOf(String line) throws IOException {
        int blank = line.indexOf(' ');
        if (!line.startsWith("HTTP/") || blank < 0 || line.length() < blank + 4) {
            throw new IOException(line);
        }
        try {
            return Integer.parseInt(line.substring(blank + 1, blank + 4));
        } catch (NumberFormatException noStatus) {
            throw new IOException(line);
        }
    }

    /** Ends the connection; whoever reads or writes it on another thread gets a failure. */
    void close() {
        try {
            in.close();
        } catch (IOException closed) {
            // Nothing is left to do.
        }
        try {
            out.close();
        } catch (IOException closed) {
            // Likewise.
        }
        try {
            connection.close();
        } catch (IOException closed) {
            // Likewise.
        }
    }
}
