package java.io;

public class DataInputStream extends InputStream {
    public DataInputStream(InputStream in) {}

    public native int read() throws IOException;

    public final native void readFully(byte[] bytes) throws IOException;

    public final native void readFully(byte[] bytes, int offset, int count) throws IOException;

    public final native int readUnsignedByte() throws IOException;

    public final native int readUnsignedShort() throws IOException;

    public final native int readInt() throws IOException;
}
