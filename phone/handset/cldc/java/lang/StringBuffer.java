package java.lang;

public final class StringBuffer {
    public StringBuffer() {}

    public StringBuffer(int capacity) {}

    public StringBuffer(String text) {}

    public native int length();

    public native char charAt(int index);

    public native void setLength(int length);

    public native StringBuffer append(Object value);

    public native StringBuffer append(String text);

    public native StringBuffer append(char character);

    public native StringBuffer append(int value);

    public native StringBuffer append(long value);

    public native StringBuffer insert(int offset, String text);

    public native String toString();
}
