package java.lang;

public final class Double {
    public Double(double value) {}

    public native double doubleValue();
}
