package java.lang;

public final class Float {
    public Float(float value) {}

    public native float floatValue();
}
