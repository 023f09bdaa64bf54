package javax.microedition.lcdui;

import java.util.Vector;

public class Form extends Screen {
    private final Vector items = new Vector();

    public Form(String title) {
        super(title);
    }

    public int append(Item item) {
        items.addElement(item);
        return items.size() - 1;
    }

    public int append(Image picture) {
        return append(new ImageItem(null, picture, Item.LAYOUT_CENTER, null));
    }

    public int append(String text) {
        return append(new StringItem(null, text));
    }

    public void deleteAll() {
        items.removeAllElements();
    }

    String content() {
        StringBuffer content = new StringBuffer();
        for (int i = 0; i < items.size(); ++i) {
            content.append(((Item) items.elementAt(i)).content()).append('\n');
        }
        return content.toString();
    }

    boolean choose(String text) {
        for (int i = 0; i < items.size(); ++i) {
            if (items.elementAt(i) instanceof ChoiceGroup && ((ChoiceGroup) items.elementAt(i)).choose(text)) {
                return true;
            }
        }
        return false;
    }
}
