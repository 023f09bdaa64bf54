package javax.microedition.media;

public interface Player extends Controllable {
    void realize() throws MediaException;

    void prefetch() throws MediaException;

    void start() throws MediaException;

    void stop() throws MediaException;

    void close();
}
