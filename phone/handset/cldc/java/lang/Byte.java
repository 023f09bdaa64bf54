package java.lang;

public final class Byte {
    public Byte(byte value) {}

    public native byte byteValue();
}
