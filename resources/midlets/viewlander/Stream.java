import java.io.IOException;
import javax.microedition.lcdui.Image;

/**
 * Reads the pictures of one request on a thread of its own, and asks again when the connection is lost. Each picture
 * comes as a header of 36 bytes or more, little-endian: "MWP1", size of the header (2 bytes), flags (2; bit 0: the last
 * one), time (8), number (4), size of the JPEG stream (4), and sizes that a phone can see in the picture itself.
 */
final class Stream extends Thread {
    private static final int HEADER = 36;
    private static final int LONGEST_HEADER = 1024;
    private static final int LONGEST_PICTURE = 1048576;
    private static final int LAST = 1;
    private static final int TRIES = 5;
    private static final int PAUSE = 2000; // milliseconds between tries

    /** Who shows what comes; called on the stream's thread. */
    interface Watcher {
        void picture(Stream from, Image picture);

        /** The pictures have stopped, for the time being. */
        void lost(Stream from);

        /** No more will come: `status` is the server's refusal, or 0 when the server does not answer. */
        void ended(Stream from, int status);
    }

    private final Server server;
    private final String resource;
    private final Watcher watcher;
    private Link link;
    private boolean stopped;

    Stream(Server server, String resource, Watcher watcher) {
        this.server = server;
        this.resource = resource;
        this.watcher = watcher;
    }

    public void run() {
        int tries = 0;
        while (!isStopped()) {
            try {
                int status = open();
                if (status != 200) {
                    watcher.ended(this, status);
                    return;
                }
                while (readPicture()) {
                    tries = 0;
                }
                tries = 0; // the server has sent as many as were asked for
            } catch (IOException lost) {
                if (isStopped()) {
                    return;
                }
                if (++tries > TRIES) {
                    watcher.ended(this, 0);
                    return;
                }
                watcher.lost(this);
                pause();
            } finally {
                close();
            }
        }
    }

    private int open() throws IOException {
        Link opened = server.request("GET", resource);
        synchronized (this) {
            link = opened;
            // Who halted while it was being opened had nothing to close.
            if (stopped) {
                throw new IOException(resource);
            }
        }
        return opened.readHead();
    }

    /** Shows one picture; false behind the last. */
    private boolean readPicture() throws IOException {
        byte[] header = new byte[HEADER];
        link.in.readFully(header);
        int headerSize = number(header, 4, 2);
        int size = number(header, 20, 4);
        if (header[0] != 'M' || header[1] != 'W' || header[2] != 'P' || header[3] != '1' || headerSize < HEADER
            || headerSize > LONGEST_HEADER || size <= 0 || size > LONGEST_PICTURE) {
            throw new IOException("no picture");
        }
        link.in.readFully(new byte[headerSize - HEADER]);
        byte[] jpeg = new byte[size];
        link.in.readFully(jpeg);
        try {
            watcher.picture(this, Image.createImage(jpeg, 0, size));
        } catch (IllegalArgumentException unknown) {
            // A picture that the phone cannot show is passed over.
        }
        return (number(header, 6, 2) & LAST) == 0;
    }

    private static int number(byte[] bytes, int at, int count) {
        int value = 0;
        for (int i = count - 1; i >= 0; --i) {
            value = value << 8 | bytes[at + i] & 255;
        }
        return value;
    }

    private synchronized boolean isStopped() {
        return stopped;
    }

    private synchronized void pause() {
        try {
            if (!stopped) {
                wait(PAUSE);
            }
        } catch (InterruptedException interrupted) {
            stopped = true;
        }
    }

    private synchronized void close() {
        if (link != null) {
            link.close();
            link = null;
        }
    }

    /** Ends the stream; no more is told of it but what is under way. */
    void halt() {
        Link current;
        synchronized (this) {
            stopped = true;
            current = link;
            notifyAll();
        }
        if (current != null) {
            current.close();
        }
    }
}
