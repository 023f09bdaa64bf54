package handset.desktop;

/** What was asked of the handset cannot be done; the message is for the person who asked. */
final class UsageException extends Exception {
    private static final long serialVersionUID = 1;

    UsageException(String message) {
        super(message);
    }
}
