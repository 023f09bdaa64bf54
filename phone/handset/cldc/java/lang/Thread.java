package java.lang;

public class Thread implements Runnable {
    public Thread() {}

    public Thread(Runnable target) {}

    public static native Thread currentThread();

    public static native void sleep(long milliseconds) throws InterruptedException;

    public static native void yield();

    public void run() {}

    public native void start();

    public native void interrupt();

    public final native boolean isAlive();

    public final native void join() throws InterruptedException;

    public final native void setPriority(int priority);
}
