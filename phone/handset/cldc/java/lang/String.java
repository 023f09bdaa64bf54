package java.lang;

public final class String {
    public String() {}

    public String(String text) {}

    public String(char[] characters, int offset, int count) {}

    public String(byte[] bytes) {}

    public String(byte[] bytes, int offset, int count) {}

    public String(byte[] bytes, String encoding) throws java.io.UnsupportedEncodingException {}

    public String(byte[] bytes, int offset, int count, String encoding) throws java.io.UnsupportedEncodingException {}

    public native int length();

    public native char charAt(int index);

    public native byte[] getBytes();

    public native byte[] getBytes(String encoding) throws java.io.UnsupportedEncodingException;

    public native boolean equals(Object other);

    public native int hashCode();

    public native boolean equalsIgnoreCase(String other);

    public native int compareTo(String other);

    public native boolean startsWith(String prefix);

    public native boolean endsWith(String suffix);

    public native int indexOf(int character);

    public native int indexOf(int character, int from);

    public native int indexOf(String text);

    public native int indexOf(String text, int from);

    public native int lastIndexOf(int character);

    public native String substring(int begin);

    public native String substring(int begin, int end);

    public native String concat(String text);

    public native String replace(char from, char to);

    public native String toLowerCase();

    public native String toUpperCase();

    public native String trim();

    public native String toString();

    public static native String valueOf(Object value);

    public static native String valueOf(int value);
}
