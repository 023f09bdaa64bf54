import java.io.IOException;
import javax.microedition.lcdui.Alert;
import javax.microedition.lcdui.AlertType;
import javax.microedition.lcdui.Command;
import javax.microedition.lcdui.CommandListener;
import javax.microedition.lcdui.Display;
import javax.microedition.lcdui.Displayable;
import javax.microedition.lcdui.Form;
import javax.microedition.lcdui.Image;
import javax.microedition.lcdui.StringItem;
import javax.microedition.media.MediaException;
import javax.microedition.midlet.MIDlet;

/** Makes the phone a camera of the server: sends what its camera sees until the person stops it. */
public class Quillstart extends MIDlet implements CommandListener, Runnable {
    /** Pictures a second that the phone aims at. */
    private static final int RATE = 4;

    private final Manifest manifest = new Manifest(this);
    private final Server server = new Server(manifest);
    private final String login = manifest.setting("LOGIN");
    private final String format = manifest.setting("FORMAT");

    private final Command start = command("cmd_transmitting", Command.SCREEN, 1);
    private final Command stop = command("cmd_stop", Command.STOP, 1);
    private final Command mainCamera = command("cmd_maincam", Command.SCREEN, 2);
    private final Command secondCamera = command("cmd_extcam", Command.SCREEN, 3);
    private final Command multiShoot = command("cmd_multishoot", Command.SCREEN, 4);
    private final Command cancel = command("cmd_cancel", Command.CANCEL, 5);
    private final Command exit = command("cmd_exit", Command.EXIT, 6);

    private final Form screen = new Form(manifest.setting("MIDlet-Name"));
    private final StringItem state = new StringItem(null, "");

    // Shared by the screen's thread and the one that sends; guarded by this object.
    private boolean running;
    private boolean stopAsked;
    private boolean secondary;
    private boolean multiple;
    private Uplink uplink;

    private Command command(String key, int type, int priority) {
        return new Command(manifest.text(key), type, priority);
    }

    protected void startApp() {
        if (Display.getDisplay(this).getCurrent() != null) {
            return; // back from a pause
        }
        screen.setCommandListener(this);
        Command[] commands = {mainCamera, secondCamera, multiShoot, exit};
        for (int i = 0; i < commands.length; ++i) {
            screen.addCommand(commands[i]);
        }
        showIdle(manifest.text("screen_wait"));
        Display.getDisplay(this).setCurrent(screen);
        transmit();
    }

    protected void pauseApp() {}

    protected void destroyApp(boolean unconditional) {
        halt();
    }

    public void commandAction(Command command, Displayable where) {
        if (command == start) {
            transmit();
        } else if (command == stop || command == cancel) {
            halt();
        } else if (command == mainCamera || command == secondCamera) {
            change(command == secondCamera);
        } else if (command == multiShoot) {
            synchronized (this) {
                multiple = !multiple;
            }
        } else if (command == exit) {
            halt();
            notifyDestroyed();
        }
    }

    /** Starts to send, unless that is under way. */
    private synchronized void transmit() {
        if (!running) {
            running = true;
            stopAsked = false;
            screen.removeCommand(start);
            screen.addCommand(stop);
            screen.addCommand(cancel);
            new Thread(this).start();
        }
    }

    /** Asks the thread that sends to end; it says so on the screen when it has. */
    private synchronized void halt() {
        stopAsked = true;
        if (uplink != null) {
            uplink.close();
        }
        notifyAll();
    }

    /** The other camera has pictures with a beginning of their own: they go through a new connection. */
    private synchronized void change(boolean toSecondary) {
        if (secondary != toSecondary) {
            secondary = toSecondary;
            if (running) {
                show(manifest.text("alert_changingcam"));
            }
            if (uplink != null) {
                uplink.close();
            }
        }
    }

    /** Sends over one connection after another, as long as there is a reason for a next one. */
    public void run() {
        String outcome = null;
        try {
            boolean whole = false;
            for (;;) {
                boolean camera;
                synchronized (this) {
                    if (stopAsked) {
                        break;
                    }
                    camera = secondary;
                }
                boolean again = transmitOnce(camera, whole);
                synchronized (this) {
                    if (!again && camera == secondary) {
                        break;
                    }
                    // The pictures of this phone do not share their beginning: each goes whole from here on.
                    whole = again;
                }
            }
        } catch (Refusal refusal) {
            outcome = refusal.getMessage();
        } catch (MediaException noPicture) {
            outcome = manifest.text("alert_captureoff");
        } catch (IOException lost) {
            outcome = manifest.text("alert_canceled");
        } catch (InterruptedException interrupted) {
            outcome = manifest.text("alert_canceled");
        }
        boolean asked;
        synchronized (this) {
            asked = stopAsked;
            running = false;
            screen.removeCommand(stop);
            screen.removeCommand(cancel);
            screen.addCommand(start);
        }
        showIdle(manifest.text("alert_canceled"));
        if (!asked) {
            Alert alert = new Alert(screen.getTitle(), outcome == null ? manifest.text("alert_canceled") : outcome, null,
                                    AlertType.ERROR);
            alert.setTimeout(Alert.FOREVER);
            Display.getDisplay(this).setCurrent(alert, screen);
        }
    }

    /**
     * One connection from its start to its end. Gives true when it ended because a picture had another beginning than
     * the first, which then has to go whole.
     */
    private boolean transmitOnce(boolean secondaryCamera, boolean whole)
        throws IOException, MediaException, InterruptedException, Refusal {
        show(manifest.text("alert_turningoncam"));
        Camera camera = Camera.open(secondaryCamera);
        Uplink connection = null;
        try {
            show(manifest.text("alert_connectingsrv"));
            connection = new Uplink(server, manifest.setting("RESOURCE"), login);
            synchronized (this) {
                uplink = connection;
                // Who stopped it while it was being opened had nothing to close.
                if (!isWanted(secondaryCamera)) {
                    return false;
                }
            }
            signIn(connection);
            byte[] picture = camera.snapshot(format);
            connection.begin(picture, whole || picture.length < Uplink.SHARED ? 0 : Uplink.SHARED);
            showCamera(camera);
            int sent = 0;
            long due = System.currentTimeMillis();
            while (connection.await() && isWanted(secondaryCamera)) {
                if (sent > 0) {
                    picture = camera.snapshot(format);
                }
                if (connection.fits(picture)) {
                    boolean many = isMultiple();
                    connection.send(picture, many);
                    ++sent;
                    show(new StringBuffer(manifest.text("screen_transmittingframes")).append(sent).toString());
                    due = many ? System.currentTimeMillis() : pace(due);
                } else if (!whole) {
                    return true;
                } else {
                    due = pace(due); // too large for the wire; the next one may be smaller
                }
            }
            if (isWanted(secondaryCamera)) {
                throw new IOException("the server has ended the connection");
            }
            return false;
        } catch (IOException failed) {
            // A connection that this phone itself has closed fails as one that was lost does.
            if (isWanted(secondaryCamera)) {
                throw failed;
            }
            return false;
        } finally {
            synchronized (this) {
                uplink = null;
            }
            if (connection != null) {
                connection.close();
            }
            camera.close();
        }
    }

    private void signIn(Uplink connection) throws IOException, Refusal {
        switch (connection.signIn(login, format, manifest.setting("PSW"), RATE)) {
        case Uplink.ACCEPTED:
            return;
        case Uplink.DENIED:
            throw new Refusal(manifest.text("alert_wrongloginpsw"));
        case Uplink.NO_CREDIT:
            throw new Refusal(manifest.text("alert_nocash"));
        default:
            throw new IOException("no such answer");
        }
    }

    /** Waits until the next picture is due. A phone that lags behind does not hurry to catch up. */
    private synchronized long pace(long due) throws InterruptedException {
        long next = Math.max(due + 1000 / RATE, System.currentTimeMillis());
        for (long left = next - System.currentTimeMillis(); left > 0 && !stopAsked;
             left = next - System.currentTimeMillis()) {
            wait(left);
        }
        return next;
    }

    private synchronized boolean isWanted(boolean secondaryCamera) {
        return !stopAsked && secondary == secondaryCamera;
    }

    private synchronized boolean isMultiple() {
        return multiple;
    }

    private void show(String text) {
        state.setText(text);
    }

    private void showCamera(Camera camera) {
        screen.deleteAll();
        screen.append(camera.viewfinder);
        screen.append(state);
    }

    private void showIdle(String text) {
        screen.deleteAll();
        try {
            screen.append(Image.createImage(manifest.setting("logo")));
        } catch (IOException noPicture) {
            // The text alone will do.
        } catch (IllegalArgumentException noPicture) {
            // Likewise.
        }
        show(text);
        screen.append(state);
    }

    /** The server does not want this phone's pictures; the message says why. */
    private static final class Refusal extends Exception {
        Refusal(String message) {
            super(message);
        }
    }
}
