import java.io.IOException;
import javax.microedition.lcdui.Item;
import javax.microedition.media.Manager;
import javax.microedition.media.MediaException;
import javax.microedition.media.Player;
import javax.microedition.media.control.GUIControl;
import javax.microedition.media.control.VideoControl;

/** One of the phone's cameras, from which snapshots are taken. Used by one thread at a time. */
final class Camera {
    private static final String[] MAIN = {"capture://devcam0", "capture://image", "capture://video"};
    private static final String[] SECONDARY = {"capture://devcam1"};

    private final Player player;
    private final VideoControl control;
    /** What shows on the screen that the camera sees. */
    final Item viewfinder;

    private Camera(Player player, VideoControl control, Item viewfinder) {
        this.player = player;
        this.control = control;
        this.viewfinder = viewfinder;
    }

    /** Turns a camera on; phones call the main one by different names. */
    static Camera open(boolean secondary) throws MediaException {
        String[] names = secondary ? SECONDARY : MAIN;
        MediaException reason = null;
        for (int i = 0; i < names.length; ++i) {
            try {
                return open(names[i]);
            } catch (MediaException failed) {
                reason = failed;
            } catch (IOException failed) {
                reason = new MediaException(failed.getMessage());
            }
        }
        throw reason;
    }

    private static Camera open(String name) throws IOException, MediaException {
        Player player = Manager.createPlayer(name);
        boolean opened = false;
        try {
            player.realize();
            VideoControl control = (VideoControl) player.getControl("VideoControl");
            if (control == null) {
                throw new MediaException(name);
            }
            Item viewfinder = (Item) control.initDisplayMode(GUIControl.USE_GUI_PRIMITIVE, null);
            player.start();
            opened = true;
            return new Camera(player, control, viewfinder);
        } finally {
            if (!opened) {
                player.close();
            }
        }
    }

    /** One picture as JPEG, `format` being like "320x240"; another text leaves the size to the phone. */
    byte[] snapshot(String format) throws MediaException {
        StringBuffer type = new StringBuffer("encoding=jpeg");
        int cross = format.indexOf('x');
        if (cross > 0 && cross + 1 < format.length()) {
            type.append("&width=").append(format.substring(0, cross));
            type.append("&height=").append(format.substring(cross + 1));
        }
        byte[] picture = control.getSnapshot(type.toString());
        if (picture == null) {
            throw new MediaException(type.toString());
        }
        return picture;
    }

    void close() {
        player.close();
    }
}
