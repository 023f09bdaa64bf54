package javax.microedition.lcdui;

import java.util.Vector;

public class ChoiceGroup extends Item implements Choice {
    private final Vector texts = new Vector();
    private int selected;

    public ChoiceGroup(String label, int type) {
        super(label);
    }

    public int append(String text, Image picture) {
        texts.addElement(text);
        return texts.size() - 1;
    }

    public int size() {
        return texts.size();
    }

    public int getSelectedIndex() {
        return texts.isEmpty() ? -1 : selected;
    }

    public void setSelectedIndex(int index, boolean isSelected) {
        if (isSelected) {
            selected = index;
        }
    }

    public String getString(int index) {
        return (String) texts.elementAt(index);
    }

    boolean choose(String text) {
        for (int i = 0; i < texts.size(); ++i) {
            if (getString(i).equals(text)) {
                selected = i;
                return true;
            }
        }
        return false;
    }
}
