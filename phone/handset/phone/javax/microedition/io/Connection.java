package javax.microedition.io;

public interface Connection {
    void close() throws java.io.IOException;
}
