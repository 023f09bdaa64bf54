package java.lang;

public class Throwable {
    public Throwable() {}

    public Throwable(String message) {}

    public native String getMessage();

    public native String toString();

    public native void printStackTrace();
}
