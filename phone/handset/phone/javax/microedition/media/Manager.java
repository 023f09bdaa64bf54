package javax.microedition.media;

import handset.Platform;
import java.io.IOException;
import javax.microedition.lcdui.Item;
import javax.microedition.lcdui.StringItem;
import javax.microedition.media.control.VideoControl;

/** Players of the phone's cameras: "capture://video" and "capture://devcam0" for the main one, "capture://devcam1". */
public final class Manager {
    private Manager() {}

    public static Player createPlayer(String locator) throws IOException, MediaException {
        if (!Platform.current().hasCamera(locator)) {
            throw new MediaException(locator);
        }
        return new CameraPlayer();
    }

    private static class CameraPlayer implements Player, VideoControl {
        private boolean started;

        public void realize() {}

        public void prefetch() {}

        public void start() {
            started = true;
        }

        public void stop() {
            started = false;
        }

        public void close() {
            started = false;
        }

        public Control getControl(String type) {
            return type.equals("VideoControl") ? this : null;
        }

        public Object initDisplayMode(int mode, Object argument) {
            Item viewfinder = new StringItem(null, "");
            return viewfinder;
        }

        public void setVisible(boolean visible) {}

        public byte[] getSnapshot(String imageType) throws MediaException {
            if (!started) {
                throw new MediaException("the player is not started");
            }
            byte[] picture = Platform.current().snapshot(imageType);
            if (picture == null) {
                throw new MediaException(imageType);
            }
            return picture;
        }
    }
}
