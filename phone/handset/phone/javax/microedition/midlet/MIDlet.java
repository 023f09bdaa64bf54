package javax.microedition.midlet;

import handset.Platform;
import handset.Program;

/** A program of the phone. The handset drives it through the Program that it registers on creation. */
public abstract class MIDlet {
    protected MIDlet() {
        Platform.current().created(new Program() {
            public void start() throws Exception {
                startApp();
            }

            public void destroy() {
                try {
                    destroyApp(true);
                } catch (MIDletStateChangeException refused) {
                    // Unconditional: the program is not asked.
                }
            }
        });
    }

    protected abstract void startApp() throws MIDletStateChangeException;

    protected abstract void pauseApp();

    protected abstract void destroyApp(boolean unconditional) throws MIDletStateChangeException;

    public final String getAppProperty(String key) {
        return Platform.current().property(key);
    }

    public final void notifyDestroyed() {
        Platform.current().destroyed();
    }

    public final void notifyPaused() {}

    public final void resumeRequest() {}
}
