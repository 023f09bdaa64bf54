package handset;

/** A screen, as a person at the handset sees and uses it. */
public interface ScreenView {
    String title();

    String content();

    boolean isError();

    /** Presses the command of that label; false where there is none. */
    boolean press(String label);

    /** Chooses the entry of that text; false where there is none. */
    boolean choose(String text);

    void shown(boolean nowShown);
}
