package javax.microedition.media;

public interface Control {}
