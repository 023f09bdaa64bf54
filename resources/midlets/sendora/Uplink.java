import java.io.IOException;

/**
 * The conversation with the server on one connection: the sign-in record, the part that all pictures share, and then
 * pictures as the server grants them. Numbers are little-endian. Grants are read by a thread of their own.
 */
final class Uplink implements Runnable {
    /** The first record: 67 bytes that tell of the phone, and the password in a field of 64. */
    private static final int RECORD = 131;
    private static final int PASSWORD_AT = 67;
    private static final int NAME_AT = 3;
    /** Where a picture is cut: a phone's pictures have the same beginning. */
    static final int SHARED = 607;
    private static final int LONGEST = 65535;
    private static final int FRAME = 4;
    private static final int MULTIPLE = 8;

    static final int ACCEPTED = 0;
    static final int DENIED = 1;
    static final int NO_CREDIT = 2;

    private final Link link;
    private int credit;
    private boolean ended;
    private byte[] shared;

    Uplink(Server server, String resource, String login) throws IOException {
        link = server.request("POST", resource.concat("/").concat(Encoding.segment(login)));
    }

    /** Sends the sign-in record and gives the server's answer. */
    int signIn(String login, String format, String password, int rate) throws IOException {
        byte[] record = new byte[RECORD];
        record[0] = 3;
        record[1] = (byte) rate;
        record[2] = 5;
        put(record, NAME_AT, PASSWORD_AT, login.concat("_").concat(format).concat("_JPEG"));
        put(record, PASSWORD_AT, RECORD, password);
        link.out.write(record);
        link.out.flush();
        int answer = link.in.readUnsignedByte();
        if (answer == 'H') {
            // The web server in front refused, in words of its own.
            return DENIED;
        }
        return answer;
    }

    /** A text with a zero behind it: what is too long for its field is cut. */
    private static void put(byte[] record, int at, int end, String text) {
        byte[] bytes = Encoding.utf8(text);
        System.arraycopy(bytes, 0, record, at, Math.min(bytes.length, end - at - 1));
    }

    /** Sends the beginning that the pictures share, `length` bytes of the first one, and starts to hear grants. */
    void begin(byte[] first, int length) throws IOException {
        byte[] header = new byte[length];
        System.arraycopy(first, 0, header, 0, length);
        link.out.write(new byte[] {(byte) length, (byte) (length >> 8)});
        link.out.write(header);
        link.out.flush();
        shared = header;
        new Thread(this).start();
    }

    /** Whether a picture can go out on this connection. */
    boolean fits(byte[] picture) {
        if (picture.length < shared.length || picture.length - shared.length > LONGEST) {
            return false;
        }
        for (int i = 0; i < shared.length; ++i) {
            if (picture[i] != shared[i]) {
                return false;
            }
        }
        return true;
    }

    /** Sends one picture that fits. */
    void send(byte[] picture, boolean multiple) throws IOException {
        int size = picture.length - shared.length;
        // What is written apart travels apart on a connection without delay.
        int descriptor = multiple ? FRAME | MULTIPLE : FRAME;
        link.out.write(new byte[] {(byte) descriptor, (byte) size, (byte) (size >> 8)});
        link.out.write(picture, shared.length, size);
        link.out.flush();
        synchronized (this) {
            --credit;
        }
    }

    /** Waits for leave to send; false when the connection has ended. */
    synchronized boolean await() throws InterruptedException {
        while (credit <= 0 && !ended) {
            wait();
        }
        return !ended;
    }

    public void run() {
        try {
            for (;;) {
                int granted = link.in.readUnsignedByte();
                synchronized (this) {
                    credit += granted;
                    notifyAll();
                }
            }
        } catch (IOException gone) {
            close();
        }
    }

    void close() {
        synchronized (this) {
            ended = true;
            notifyAll();
        }
        link.close();
    }
}
