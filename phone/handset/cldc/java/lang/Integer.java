package java.lang;

public final class Integer {
    public static final int MIN_VALUE = 0x80000000;
    public static final int MAX_VALUE = 0x7FFFFFFF;

    public Integer(int value) {}

    public native int intValue();

    public static native int parseInt(String text) throws NumberFormatException;

    public static native int parseInt(String text, int radix) throws NumberFormatException;

    public static native String toString(int value);

    public static native String toHexString(int value);
}
