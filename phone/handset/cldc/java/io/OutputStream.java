package java.io;

public abstract class OutputStream {
    public abstract void write(int value) throws IOException;

    public native void write(byte[] bytes) throws IOException;

    public native void write(byte[] bytes, int offset, int count) throws IOException;

    public native void flush() throws IOException;

    public native void close() throws IOException;
}
