import java.io.IOException;
import javax.microedition.io.Connector;
import javax.microedition.io.SocketConnection;

/** The server that the archive was made by: its address, and how the phone signs in. */
final class Server {
    private static final int DEFAULT_PORT = 80;
    /** Where nothing usable stands in the manifest: a server on the same machine, as an emulator's user has it. */
    private static final String DEFAULT_SERVER = "127.0.0.1:8080";

    private final String host;
    private final int port;
    private final String authorization;

    Server(Manifest manifest) {
        String address = manifest.setting("SRV");
        if (!isUsable(address)) {
            address = DEFAULT_SERVER;
        }
        // An IPv6 address stands in brackets, which hold colons of their own.
        int colon = address.lastIndexOf(':');
        if (colon > address.lastIndexOf(']')) {
            host = address.substring(0, colon);
            port = Integer.parseInt(address.substring(colon + 1));
        } else {
            host = address;
            port = DEFAULT_PORT;
        }
        String login = manifest.setting("LOGIN");
        String password = manifest.setting("PSW");
        authorization = login.length() == 0 && password.length() == 0
            ? null
            : Encoding.base64(Encoding.utf8(login.concat(":").concat(password)));
    }

    /** Host and port, or a host alone. */
    private static boolean isUsable(String address) {
        int colon = address.lastIndexOf(':');
        if (address.length() == 0 || colon == 0 || address.indexOf('/') >= 0 || address.indexOf(' ') >= 0) {
            return false;
        }
        if (colon <= address.lastIndexOf(']')) {
            return true;
        }
        if (address.indexOf(':') < colon && address.charAt(0) != '[') {
            return false; // which of the colons stands before a port?
        }
        try {
            int port = Integer.parseInt(address.substring(colon + 1));
            return port > 0 && port < 65536;
        } catch (NumberFormatException noNumber) {
            return false;
        }
    }

    /** Opens a connection and sends the head of a request on it. The caller closes it. */
    Link request(String method, String resource) throws IOException {
        SocketConnection connection = (SocketConnection) Connector.open(
            new StringBuffer("socket://").append(host).append(':').append(port).toString());
        try {
            // Small records go out at once: a server waits for each of them.
            connection.setSocketOption(SocketConnection.DELAY, 0);
        } catch (IOException notSupported) {
            // Some phones know no options; the connection works all the same.
        }
        try {
            Link link = new Link(connection);
            StringBuffer head = new StringBuffer(method).append(' ').append(resource).append(" HTTP/1.0\r\nHost: ");
            head.append(host).append(':').append(port).append("\r\n");
            if (authorization != null) {
                head.append("Authorization: Basic ").append(authorization).append("\r\n");
            }
            link.out.write(Encoding.utf8(head.append("\r\n").toString()));
            link.out.flush();
            return link;
        } catch (IOException failed) {
            connection.close();
            throw failed;
        }
    }
}
