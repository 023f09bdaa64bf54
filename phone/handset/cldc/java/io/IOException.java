package java.io;

public class IOException extends Exception {
    public IOException() {}

    public IOException(String message) {}
}
