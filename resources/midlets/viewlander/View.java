/** The part of the source's picture that the person looks at, in thousandths of its width and height, and its turn. */
final class View {
    private static final int WHOLE = 1000;
    private static final int CLOSEST = 100;

    private int left;
    private int top;
    private int size = WHOLE;
    private boolean turned;

    /** Closer or farther by a half, around the middle. */
    void zoom(boolean closer) {
        int before = size;
        size = closer ? Math.max(CLOSEST, size * 2 / 3) : Math.min(WHOLE, size * 3 / 2);
        move((before - size) / 2, (before - size) / 2);
    }

    /** By half of what is seen, in the direction that `x` and `y` give as -1, 0 or 1. */
    void step(int x, int y) {
        move(x * size / 2, y * size / 2);
    }

    private void move(int x, int y) {
        left = Math.max(0, Math.min(WHOLE - size, left + x));
        top = Math.max(0, Math.min(WHOLE - size, top + y));
    }

    void fit() {
        size = WHOLE;
        left = 0;
        top = 0;
    }

    void turn() {
        turned = !turned;
    }

    StringBuffer appendTo(StringBuffer parameters) {
        parameters.append("&zx=").append(left).append("&zy=").append(top);
        parameters.append("&zw=").append(size).append("&zh=").append(size);
        return turned ? parameters.append("&rotate") : parameters;
    }
}
