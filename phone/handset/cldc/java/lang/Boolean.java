package java.lang;

public final class Boolean {
    public Boolean(boolean value) {}

    public native boolean booleanValue();
}
