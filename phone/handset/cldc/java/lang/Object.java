package java.lang;

public class Object {
    public Object() {}

    public boolean equals(Object other) {
        return this == other;
    }

    public native int hashCode();

    public native String toString();

    public final native Class getClass();

    public final native void notify();

    public final native void notifyAll();

    public final native void wait() throws InterruptedException;

    public final native void wait(long milliseconds) throws InterruptedException;
}
