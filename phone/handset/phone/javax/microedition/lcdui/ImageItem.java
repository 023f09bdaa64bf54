package javax.microedition.lcdui;

public class ImageItem extends Item {
    private Image picture;

    public ImageItem(String label, Image picture, int layout, String alternative) {
        super(label);
        this.picture = picture;
    }

    public Image getImage() {
        return picture;
    }
}
