package java.lang;

public final class Long {
    public Long(long value) {}

    public native long longValue();
}
