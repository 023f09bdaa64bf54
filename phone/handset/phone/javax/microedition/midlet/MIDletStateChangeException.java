package javax.microedition.midlet;

public class MIDletStateChangeException extends Exception {
    public MIDletStateChangeException() {}

    public MIDletStateChangeException(String message) {
        super(message);
    }
}
