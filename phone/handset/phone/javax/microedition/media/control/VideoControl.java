package javax.microedition.media.control;

import javax.microedition.media.MediaException;

public interface VideoControl extends GUIControl {
    void setVisible(boolean visible);

    byte[] getSnapshot(String imageType) throws MediaException;
}
