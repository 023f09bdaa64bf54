package java.lang;

public final class Math {
    private Math() {}

    public static native int abs(int value);

    public static native int max(int one, int other);

    public static native int min(int one, int other);

    public static native long max(long one, long other);

    public static native long min(long one, long other);
}
