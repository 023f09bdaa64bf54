import java.io.UnsupportedEncodingException;

/** Text as bytes, and as text that goes through a request line. */
final class Encoding {
    private static final String BASE64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    private static final String PLAIN = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    private static final String HEX = "0123456789ABCDEF";

    private Encoding() {}

    static byte[] utf8(String text) {
        try {
            return text.getBytes("UTF-8");
        } catch (UnsupportedEncodingException plainPhone) {
            return text.getBytes();
        }
    }

    static String fromUtf8(byte[] bytes, int offset, int count) {
        try {
            return new String(bytes, offset, count, "UTF-8");
        } catch (UnsupportedEncodingException plainPhone) {
            return new String(bytes, offset, count);
        }
    }

    static String base64(byte[] bytes) {
        StringBuffer text = new StringBuffer();
        for (int at = 0; at < bytes.length; at += 3) {
            int group = (bytes[at] & 255) << 16;
            group |= at + 1 < bytes.length ? (bytes[at + 1] & 255) << 8 : 0;
            group |= at + 2 < bytes.length ? bytes[at + 2] & 255 : 0;
            text.append(BASE64.charAt(group >> 18)).append(BASE64.charAt(group >> 12 & 63));
            text.append(at + 1 < bytes.length ? BASE64.charAt(group >> 6 & 63) : '=');
            text.append(at + 2 < bytes.length ? BASE64.charAt(group & 63) : '=');
        }
        return text.toString();
    }

    /** A segment of a path: what has a meaning there is percent-encoded, a "/" too. */
    static String segment(String text) {
        byte[] bytes = utf8(text);
        StringBuffer encoded = new StringBuffer();
        for (int i = 0; i < bytes.length; ++i) {
            char character = (char) (bytes[i] & 255);
            if (PLAIN.indexOf(character) >= 0) {
                encoded.append(character);
            } else {
                encoded.append('%').append(HEX.charAt(character >> 4)).append(HEX.charAt(character & 15));
            }
        }
        return encoded.toString();
    }
}
