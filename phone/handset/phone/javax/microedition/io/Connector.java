package javax.microedition.io;

import handset.Platform;
import java.io.IOException;

/** Opens "socket://HOST:PORT"; this phone knows no other scheme. */
public class Connector {
    private static final String SCHEME = "socket://";

    private Connector() {}

    public static Connection open(String name) throws IOException {
        if (!name.startsWith(SCHEME)) {
            throw new ConnectionNotFoundException(name);
        }
        int colon = name.lastIndexOf(':');
        if (colon < SCHEME.length()) {
            throw new IllegalArgumentException(name);
        }
        String host = name.substring(SCHEME.length(), colon);
        try {
            return Platform.current().openSocket(host, Integer.parseInt(name.substring(colon + 1)));
        } catch (NumberFormatException noPort) {
            throw new IllegalArgumentException(name);
        }
    }
}
