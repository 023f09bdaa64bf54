package java.io;

public class DataOutputStream extends OutputStream {
    public DataOutputStream(OutputStream out) {}

    public native void write(int value) throws IOException;
}
