package java.io;

public class ByteArrayInputStream extends InputStream {
    public ByteArrayInputStream(byte[] bytes) {}

    public ByteArrayInputStream(byte[] bytes, int offset, int count) {}

    public native int read();
}
