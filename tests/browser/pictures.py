"""Pictures that say which picture they are.

The upper half of a picture is a row of black and white bars, the bits of its number, lowest on the left: wide
enough to survive two rounds of JPEG and a scaled canvas. The lower half is a coloured ramp, so that a blank picture
stands out.
"""

import shutil
import subprocess

WIDTH, HEIGHT = 160, 120
BITS = 12
BAR = WIDTH // BITS


def coded_jpeg(number):
    """One JPEG that shows `number`, 0 to 4095."""
    bars = bytearray()
    for x in range(WIDTH):
        lit = x // BAR < BITS and number >> (x // BAR) & 1
        bars += bytes((255, 255, 255) if lit else (0, 0, 0))
    ramp = bytearray()
    for x in range(WIDTH):
        ramp += bytes((40 + x, 120, 220 - x))
    half = HEIGHT // 2
    pixels = bytes(bars) * half + bytes(ramp) * half
    cjpeg = shutil.which("cjpeg")
    if cjpeg is None:
        raise RuntimeError("cjpeg is missing: install libjpeg-turbo-progs")
    header = f"P6 {WIDTH} {HEIGHT} 255\n".encode()
    return subprocess.run([cjpeg, "-quality", "90"], input=header + pixels, stdout=subprocess.PIPE, check=True).stdout


# For the page: the number on a canvas or an image; null when the picture is not one of ours. The parameters are the
# thing to read and a 2D context to read it with, made by newContext.
READ_CODE_JS = """
function readCode(source, context) {
    context.drawImage(source, 0, 0, %(width)d, %(height)d);
    const bars = context.getImageData(0, %(height)d / 4, %(width)d, 1).data;
    const ramp = context.getImageData(0, %(height)d * 3 / 4, %(width)d, 1).data;
    const left = 4 * 10, right = 4 * (%(width)d - 10);
    if (ramp[left + 2] < ramp[left] + 60 || ramp[right] < ramp[right + 2] + 60) {
        return null;
    }
    let code = 0;
    for (let bit = 0; bit < %(bits)d; ++bit) {
        const level = bars[4 * Math.floor((bit + 0.5) * %(bar)d) + 1];
        if (level > 80 && level < 175) {
            return null;
        }
        code |= (level > 127 ? 1 : 0) << bit;
    }
    return code;
}
""" % {"width": WIDTH, "height": HEIGHT, "bits": BITS, "bar": BAR}

NEW_CONTEXT_JS = """
function newContext() {
    return new OffscreenCanvas(%d, %d).getContext("2d", { willReadFrequently: true });
}
""" % (WIDTH, HEIGHT)
