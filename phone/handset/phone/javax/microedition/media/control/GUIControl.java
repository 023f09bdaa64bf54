package javax.microedition.media.control;

import javax.microedition.media.Control;

public interface GUIControl extends Control {
    int USE_GUI_PRIMITIVE = 0;

    Object initDisplayMode(int mode, Object argument);
}
