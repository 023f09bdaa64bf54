import javax.microedition.midlet.MIDlet;

/** The texts and settings that the archive's manifest carries. */
final class Manifest {
    private final MIDlet program;

    Manifest(MIDlet program) {
        this.program = program;
    }

    /** The value of a setting, without the blanks around it; empty where there is none. */
    String setting(String key) {
        String value = program.getAppProperty(key);
        return value == null ? "" : value.trim();
    }

    /**
     * A text of the user interface. An archive whose language could not be had carries none, and "?" stands for a text
     * that nobody has translated: then the key itself, short of its kind, says what is meant ("cmd_exit" gives "exit").
     */
    String text(String key) {
        String text = program.getAppProperty(key);
        if (text == null || text.length() == 0 || text.equals("?")) {
            return key.substring(key.indexOf('_') + 1);
        }
        return text;
    }
}
