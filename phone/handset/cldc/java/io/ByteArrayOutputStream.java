package java.io;

public class ByteArrayOutputStream extends OutputStream {
    public ByteArrayOutputStream() {}

    public ByteArrayOutputStream(int size) {}

    public native void write(int value);

    public native void write(byte[] bytes, int offset, int count);

    public native void reset();

    public native int size();

    public native byte[] toByteArray();
}
