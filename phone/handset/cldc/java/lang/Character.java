package java.lang;

public final class Character {
    public Character(char value) {}

    public native char charValue();

    public static native boolean isDigit(char character);

    public static native int digit(char character, int radix);
}
