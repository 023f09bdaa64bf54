package handset;

/** A midlet, as the handset drives it. */
public interface Program {
    void start() throws Exception;

    void destroy();
}
