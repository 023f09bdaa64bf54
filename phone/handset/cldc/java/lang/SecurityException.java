package java.lang;

public class SecurityException extends RuntimeException {
    public SecurityException() {}

    public SecurityException(String message) {}
}
