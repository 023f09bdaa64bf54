/** The part of the source's picture that the person looks at, in thousandths of its width and height, and its turn. */
final class View {
    private static final int WHOLE = 1000;
    /** What is seen, from all of it to a tenth. Steps of a list, so that the way back is the way there. */
    private static final int[] SIZES = {WHOLE, 667, 444, 296, 198, 132, 100};

    private int left;
    private int top;
    private int step;
    private int size = WHOLE;
    private boolean turned;

    /** Closer or farther by a half, around the middle. */
    void zoom(boolean closer) {
        int before = size;
        step = closer ? Math.min(SIZES.length - 1, step + 1) : Math.max(0, step - 1);
        size = SIZES[step];
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
        step = 0;
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
