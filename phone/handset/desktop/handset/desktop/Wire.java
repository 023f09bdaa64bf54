package handset.desktop;

import java.io.DataInputStream;
import java.io.DataOutputStream;
import java.io.IOException;
import java.io.InputStream;
import java.io.OutputStream;
import java.net.InetSocketAddress;
import java.net.Socket;
import javax.microedition.io.SocketConnection;

/** A connection of the phone, over the desktop's socket. */
final class Wire implements SocketConnection {
    private static final int CONNECT_LIMIT = 20_000; // milliseconds, as phones have it

    private final Socket socket = new Socket();

    Wire(String host, int port) throws IOException {
        socket.connect(new InetSocketAddress(host, port), CONNECT_LIMIT);
    }

    @Override
    public void setSocketOption(byte option, int value) throws IOException {
        if (option == DELAY) {
            socket.setTcpNoDelay(value == 0);
        }
    }

    @Override
    public InputStream openInputStream() throws IOException {
        return socket.getInputStream();
    }

    @Override
    public DataInputStream openDataInputStream() throws IOException {
        return new DataInputStream(new java.io.BufferedInputStream(openInputStream()));
    }

    @Override
    public OutputStream openOutputStream() throws IOException {
        return socket.getOutputStream();
    }

    @Override
    public DataOutputStream openDataOutputStream() throws IOException {
        return new DataOutputStream(openOutputStream());
    }

    @Override
    public void close() throws IOException {
        socket.close();
    }
}
