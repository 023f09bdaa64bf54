package java.io;

public abstract class InputStream {
    public abstract int read() throws IOException;

    public native int read(byte[] bytes) throws IOException;

    public native int read(byte[] bytes, int offset, int count) throws IOException;

    public native long skip(long count) throws IOException;

    public native int available() throws IOException;

    public native void close() throws IOException;
}
