package java.util;

public interface Enumeration {
    boolean hasMoreElements();

    Object nextElement();
}
