import java.io.IOException;
import javax.microedition.lcdui.Alert;
import javax.microedition.lcdui.AlertType;
import javax.microedition.lcdui.Choice;
import javax.microedition.lcdui.Command;
import javax.microedition.lcdui.CommandListener;
import javax.microedition.lcdui.Display;
import javax.microedition.lcdui.Displayable;
import javax.microedition.lcdui.Form;
import javax.microedition.lcdui.Image;
import javax.microedition.lcdui.List;
import javax.microedition.midlet.MIDlet;

/** Shows the sources of the server: a list of them, the picture of the one chosen, and what the person does with it. */
public class Quillstart extends MIDlet implements CommandListener, Stream.Watcher, VideoScreen.Mover, Runnable {
    private final Manifest manifest = new Manifest(this);
    private final Server server = new Server(manifest);
    private final Settings settings = new Settings(manifest);
    private final View view = new View();

    private final Command watch = command("menu_view", Command.OK, 1);
    private final Command stop = command("menu_stop", Command.STOP, 1);
    private final Command closer = command("menu_zoomin", Command.SCREEN, 2);
    private final Command farther = command("menu_zoomout", Command.SCREEN, 3);
    private final Command fit = command("menu_fit", Command.SCREEN, 4);
    private final Command rotate = command("menu_rotate", Command.SCREEN, 5);
    private final Command cameras = command("menu_cameras", Command.BACK, 6);
    private final Command setUp = command("menu_settings", Command.SCREEN, 7);
    private final Command accept = command("menu_ok", Command.OK, 1);
    private final Command cancel = command("menu_cancel", Command.CANCEL, 2);
    private final Command exit = command("menu_exit", Command.EXIT, 8);

    private final VideoScreen video = new VideoScreen(this);

    // Shared by the screen's thread and those that read; guarded by this object.
    private List list;
    private CameraList sources;
    private String source;
    private Stream stream;
    private Displayable behindSettings;
    private boolean pausedWhilePlaying;

    private Command command(String key, int type, int priority) {
        return new Command(manifest.text(key), type, priority);
    }

    private Display display() {
        return Display.getDisplay(this);
    }

    protected void startApp() {
        if (display().getCurrent() != null) {
            resume();
            return;
        }
        video.setTitle(manifest.setting("MIDlet-Name"));
        add(video, new Command[] {stop, closer, farther, fit, rotate, cameras, setUp, exit});
        add(settings.screen, new Command[] {accept, cancel});
        loadList();
    }

    private void add(Displayable screen, Command[] commands) {
        for (int i = 0; i < commands.length; ++i) {
            screen.addCommand(commands[i]);
        }
        screen.setCommandListener(this);
    }

    protected synchronized void pauseApp() {
        pausedWhilePlaying = stream != null;
        halt();
    }

    private synchronized void resume() {
        if (pausedWhilePlaying) {
            pausedWhilePlaying = false;
            play();
        }
    }

    protected void destroyApp(boolean unconditional) {
        halt();
    }

    public void commandAction(Command command, Displayable where) {
        if (command == List.SELECT_COMMAND || command == watch) {
            choose(where);
        } else if (command == stop) {
            halt();
            video.removeCommand(stop);
            video.addCommand(watch);
            video.say(manifest.text("menu_stop"));
        } else if (command == cameras) {
            halt();
            loadList();
        } else if (command == setUp) {
            behindSettings = where;
            display().setCurrent(settings.screen);
        } else if (command == accept || command == cancel) {
            leaveSettings(command == accept);
        } else if (command == exit) {
            halt();
            notifyDestroyed();
        } else {
            look(command);
        }
    }

    /** The commands that change what part of the picture is seen. */
    private void look(Command command) {
        if (command == closer || command == farther) {
            view.zoom(command == closer);
        } else if (command == fit) {
            view.fit();
        } else if (command == rotate) {
            view.turn();
        }
        playOn();
    }

    public void moved(int x, int y) {
        view.step(x, y);
        playOn();
    }

    private void leaveSettings(boolean accepted) {
        if (accepted) {
            settings.accept();
        } else {
            settings.cancel();
        }
        display().setCurrent(behindSettings);
        if (accepted) {
            playOn();
        }
    }

    /** Watches the chosen entry of the list; on the picture itself, goes on with the same source. */
    private void choose(Displayable where) {
        synchronized (this) {
            if (where == list) {
                int index = list.getSelectedIndex();
                if (index < 0 || index >= sources.size()) {
                    return;
                }
                source = sources.key(index);
                view.fit();
            }
        }
        video.removeCommand(watch);
        video.removeCommand(stop);
        video.addCommand(stop);
        video.clear(manifest.text("alert_videoload"));
        display().setCurrent(video);
        play();
    }

    /** Asks for the pictures as they are wanted now. */
    private synchronized void play() {
        halt();
        if (source != null) {
            StringBuffer resource = new StringBuffer(manifest.setting("RESOURCE")).append('/');
            resource.append(Encoding.segment(source)).append('?');
            resource.append(settings.parameters(video.getWidth(), video.getHeight(), view));
            stream = new Stream(server, resource.toString(), this);
            stream.start();
        }
    }

    /** The same for who is watching; what was stopped stays so until it is wanted. */
    private synchronized void playOn() {
        if (stream != null) {
            play();
        }
    }

    private synchronized void halt() {
        if (stream != null) {
            stream.halt();
            stream = null;
        }
    }

    private synchronized boolean isCurrent(Stream from) {
        return from == stream;
    }

    public void picture(Stream from, Image picture) {
        if (isCurrent(from)) {
            video.show(picture);
        }
    }

    public void lost(Stream from) {
        if (isCurrent(from)) {
            video.say(manifest.text("alert_nosignal"));
        }
    }

    public void ended(Stream from, int status) {
        if (isCurrent(from)) {
            halt();
            String text = status == 0 ? "alert_tryreload" : "alert_nosignal";
            showAlert(manifest.text(text), status, list == null ? (Displayable) video : list);
        }
    }

    private void showAlert(String text, int status, Displayable next) {
        String whole = status == 0 ? text : new StringBuffer(text).append(" (").append(status).append(')').toString();
        Alert alert = new Alert(manifest.setting("MIDlet-Name"), whole, null, AlertType.ERROR);
        alert.setTimeout(Alert.FOREVER);
        display().setCurrent(alert, next);
    }

    private void loadList() {
        Form wait = new Form(manifest.text("screen_wait"));
        try {
            wait.append(Image.createImage(manifest.setting("logo")));
        } catch (IOException noPicture) {
            // The text alone will do.
        } catch (IllegalArgumentException noPicture) {
            // Likewise.
        }
        wait.append(manifest.text("alert_camlistload"));
        wait.append(manifest.text("screen_tessaron"));
        add(wait, new Command[] {exit});
        display().setCurrent(wait);
        new Thread(this).start();
    }

    /** Loads the list and shows it. */
    public void run() {
        CameraList loaded = null;
        String trouble = null;
        try {
            loaded = CameraList.load(server, manifest.setting("CAMLIST"));
            if (loaded.size() == 0) {
                trouble = "alert_nocams";
            } else if (!showsJpeg()) {
                trouble = "alert_nosignal";
            }
        } catch (IOException failed) {
            trouble = "alert_cantloadlist";
        }
        List entries = new List(manifest.text("screen_tessaroncams"), Choice.IMPLICIT);
        for (int i = 0; loaded != null && i < loaded.size(); ++i) {
            entries.append(loaded.name(i), null);
        }
        add(entries, new Command[] {watch, cameras, setUp, exit});
        synchronized (this) {
            sources = loaded;
            list = entries;
        }
        if (trouble == null) {
            display().setCurrent(entries);
        } else {
            showAlert(manifest.text(trouble), 0, entries);
        }
    }

    /** Whether the phone can show what the server sends. */
    private boolean showsJpeg() {
        try {
            return Image.createImage(manifest.setting("testJPEG")).getWidth() > 0;
        } catch (IOException missing) {
            return false;
        } catch (IllegalArgumentException unknown) {
            return false;
        }
    }
}
