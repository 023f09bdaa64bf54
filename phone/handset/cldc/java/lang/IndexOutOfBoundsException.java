package java.lang;

public class IndexOutOfBoundsException extends RuntimeException {
    public IndexOutOfBoundsException() {}

    public IndexOutOfBoundsException(String message) {}
}
