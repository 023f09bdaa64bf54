package java.lang;

public class IllegalArgumentException extends RuntimeException {
    public IllegalArgumentException() {}

    public IllegalArgumentException(String message) {}
}
