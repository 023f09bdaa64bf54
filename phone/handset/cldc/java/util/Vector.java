package java.util;

public class Vector {
    public Vector() {}

    public native int size();

    public native boolean isEmpty();

    public native Object elementAt(int index);

    public native void addElement(Object element);

    public native boolean removeElement(Object element);

    public native void removeAllElements();

    public native Enumeration elements();
}
