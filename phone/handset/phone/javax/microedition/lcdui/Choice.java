package javax.microedition.lcdui;

public interface Choice {
    int EXCLUSIVE = 1;
    int MULTIPLE = 2;
    int IMPLICIT = 3;

    int append(String text, Image picture);

    int size();

    int getSelectedIndex();

    void setSelectedIndex(int index, boolean selected);

    String getString(int index);
}
