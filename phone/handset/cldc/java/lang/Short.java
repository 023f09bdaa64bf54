package java.lang;

public final class Short {
    public Short(short value) {}

    public native short shortValue();
}
