package javax.microedition.io;

public class ConnectionNotFoundException extends java.io.IOException {
    public ConnectionNotFoundException() {}

    public ConnectionNotFoundException(String message) {
        super(message);
    }
}
