package handset.desktop;

import handset.Platform;
import handset.Program;
import handset.ScreenView;
import java.awt.image.BufferedImage;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import java.util.Set;
import java.util.WeakHashMap;
import java.util.Collections;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import javax.imageio.ImageIO;
import javax.microedition.io.SocketConnection;

/**
 * The phone: its camera, its screen, and the person who presses its keys. The thread that calls run() is the screen's;
 * a midlet's own threads call the rest.
 */
final class Phone extends Platform {
    private static final Runnable END = () -> {};
    /** How long a person looks for a command that is not on the screen yet, and how often, in milliseconds. */
    private static final long PATIENCE = 10_000;
    private static final long LOOK_AGAIN = 20;

    private final Options options;
    private final Archive archive;
    private final PictureFolder mainCamera;
    private final PictureFolder secondCamera;
    private final Screen screen;
    private final LinkedBlockingQueue<Runnable> tasks = new LinkedBlockingQueue<>();
    private final List<Options.Press> presses = new ArrayList<>();
    /** Pictures that have been on the screen. */
    private final Set<BufferedImage> seen = Collections.newSetFromMap(new WeakHashMap<>());

    private volatile boolean usesSecondCamera;
    private volatile ScreenView current;
    private Program program;
    private boolean chosen;
    /** Since when a due command is missing, by the machine's steady clock; 0 while none is. */
    private long missingSince;

    // Guarded by this object.
    private int frames;
    private boolean ended;
    private int status;

    Phone(Options options, Archive archive) throws UsageException {
        this.options = options;
        this.archive = archive;
        mainCamera = options.pictures == null ? null : new PictureFolder(options.pictures);
        secondCamera = options.second == null ? null : new PictureFolder(options.second);
        screen = new Screen(options.width, options.height, options.out);
        presses.addAll(options.presses);
    }

    /** Runs the midlet to its end and gives the program's exit status. */
    int run() throws UsageException {
        try {
            archive.loadClass(archive.programClass()).getDeclaredConstructor().newInstance();
            program.start();
        } catch (UsageException misuse) {
            throw misuse;
        } catch (Exception | LinkageError failed) {
            System.err.println("handset: the midlet does not start: " + failed);
            return 1;
        }
        final long end = System.nanoTime() + TimeUnit.SECONDS.toNanos(options.timeout);
        try {
            pressWhatIsDue();
            for (;;) {
                Runnable task = tasks.poll(missingSince != 0 ? LOOK_AGAIN : 1000, TimeUnit.MILLISECONDS);
                if (options.timeout != 0 && System.nanoTime() - end >= 0) {
                    end(1, "the time is over");
                    break;
                }
                if (task == END) {
                    break;
                }
                if (task != null) {
                    task.run();
                }
                if (missingSince != 0) {
                    pressWhatIsDue();
                }
            }
        } catch (InterruptedException interrupted) {
            end(1, "interrupted");
        }
        program.destroy();
        synchronized (this) {
            System.out.println("handset: " + frames + " frames");
            return status;
        }
    }

    /** The first reason to end counts. */
    private synchronized void end(int withStatus, String reason) {
        if (!ended) {
            ended = true;
            status = withStatus;
            System.out.println("handset: " + reason);
            tasks.add(END);
        }
    }

    /** Counts a frame. Gives false when there were enough already. */
    private boolean countFrame() {
        synchronized (this) {
            if (ended) {
                return false;
            }
            ++frames;
        }
        post(this::pressWhatIsDue);
        return true;
    }

    private void pressWhatIsDue() {
        int now;
        synchronized (this) {
            now = frames;
        }
        while (!presses.isEmpty() && presses.get(0).afterFrames() <= now) {
            String label = presses.get(0).label();
            if (current != null && (current.press(label) || current.choose(label))) {
                presses.remove(0);
                missingSince = 0;
                continue;
            }
            long time = System.nanoTime();
            if (missingSince == 0) {
                missingSince = time;
            } else if (time - missingSince > TimeUnit.MILLISECONDS.toNanos(PATIENCE)) {
                end(1, "there is no \"" + label + "\" to press" + (current == null ? "" : " on \"" + current.title() + "\""));
            }
            return;
        }
    }

    @Override
    public void created(Program created) {
        program = created;
    }

    @Override
    public void destroyed() {
        end(0, "the midlet has ended");
    }

    @Override
    public String property(String key) {
        return archive.property(key);
    }

    @Override
    public byte[] resource(String name) {
        return archive.resource(name);
    }

    @Override
    public SocketConnection openSocket(String host, int port) throws IOException {
        return new Wire(host, port);
    }

    @Override
    public boolean hasCamera(String locator) {
        boolean second = locator.equals("capture://devcam1");
        usesSecondCamera = second;
        return second ? secondCamera != null
                      : mainCamera != null && (locator.equals("capture://video") || locator.equals("capture://devcam0"));
    }

    @Override
    public byte[] snapshot(String imageType) {
        synchronized (this) {
            // The one behind the last is asked for when the last has been sent.
            if (options.frames > 0 && frames >= options.frames) {
                end(0, "all pictures were taken");
                return null;
            }
        }
        try {
            byte[] picture = (usesSecondCamera ? secondCamera : mainCamera).snapshot(imageType);
            return picture != null && countFrame() ? picture : null;
        } catch (IOException unreadable) {
            return null;
        }
    }

    @Override
    public void post(Runnable task) {
        tasks.add(task);
    }

    @Override
    public void show(ScreenView view) {
        post(() -> {
            ScreenView before = current;
            current = view;
            if (before != null && before != view) {
                before.shown(false);
            }
            view.shown(true);
            changed(view);
            if (view.isError()) {
                end(1, "the midlet shows an error");
            } else if (options.source != null && !chosen && view.choose(options.source)) {
                chosen = true;
            }
        });
    }

    @Override
    public void changed(ScreenView view) {
        if (view == current) {
            String content = view.content().strip().replace("\n", " | ");
            System.out.println("screen: " + (view.title() == null ? "" : view.title()) + (content.isEmpty() ? "" : ": ")
                               + content);
        }
    }

    @Override
    public boolean isShown(ScreenView view) {
        return view == current;
    }

    @Override
    public int screenWidth() {
        return screen.width();
    }

    @Override
    public int screenHeight() {
        return screen.height();
    }

    @Override
    public void painted() {
        try {
            if (screen.painted() && countFrame()) {
                synchronized (this) {
                    if (frames == options.frames) {
                        end(0, "all pictures were painted");
                    }
                }
            }
        } catch (IOException unwritable) {
            end(1, "a picture could not be written: " + unwritable.getMessage());
        }
    }

    @Override
    public Object decode(byte[] data, int offset, int length) {
        try {
            return ImageIO.read(new ByteArrayInputStream(data, offset, length));
        } catch (IOException damaged) {
            return null;
        }
    }

    @Override
    public int widthOf(Object picture) {
        return ((BufferedImage) picture).getWidth();
    }

    @Override
    public int heightOf(Object picture) {
        return ((BufferedImage) picture).getHeight();
    }

    @Override
    public int textHeight() {
        return screen.metrics().getHeight();
    }

    @Override
    public int textWidth(String text) {
        return screen.metrics().stringWidth(text);
    }

    @Override
    public void fill(int x, int y, int width, int height, int rgb) {
        screen.fill(x, y, width, height, rgb);
    }

    @Override
    public void draw(Object picture, int x, int y) {
        BufferedImage image = (BufferedImage) picture;
        screen.draw(image, x, y, seen.add(image));
    }

    @Override
    public void write(String text, int x, int y, int rgb) {
        screen.write(text, x, y, rgb);
    }
}
