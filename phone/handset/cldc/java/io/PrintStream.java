package java.io;

public class PrintStream extends OutputStream {
    public PrintStream(OutputStream out) {}

    public native void write(int value);

    public native void println(String text);
}
