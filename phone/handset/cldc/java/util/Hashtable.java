package java.util;

public class Hashtable {
    public Hashtable() {}

    public native Object get(Object key);

    public native Object put(Object key, Object value);

    public native Object remove(Object key);

    public native int size();
}
