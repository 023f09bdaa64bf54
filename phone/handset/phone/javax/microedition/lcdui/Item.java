package javax.microedition.lcdui;

public abstract class Item {
    public static final int LAYOUT_CENTER = 3;

    private String label;

    Item(String label) {
        this.label = label;
    }

    public void setLabel(String label) {
        this.label = label;
    }

    public String getLabel() {
        return label;
    }

    public void setLayout(int layout) {}

    String content() {
        return label == null ? "" : label;
    }
}
