// What has to keep time when the page cannot: a browser slows down the timers of a page that is not in front, and the
// encoding on its thread with them, but not those of a worker.
//
// In:  {rate}                                  ticks a second, 0 for none
//      {bitmap, width, height, quality}        a picture to encode, of that size and quality at most
// Out: {tick: true}                            a picture is due
//      {beat: true}                            a second is over
//      {jpeg, width, height}                   the bytes, and the size that they really have; jpeg is null for none

const MOST_BYTES = 65535; // of a picture, on its way to the server
const BEAT_MS = 1000;
const STEP = 0.8; // of quality and size, when a picture is too large
const LEAST_QUALITY = 0.2; // below it a smaller picture shows more
const RELAX_MS = 2000; // after which one step back is tried
const ROOMY = 0.7; // of the most bytes, below which that is worth trying

let interval = 0;
let due = 0;
let timer = 0;
const canvas = new OffscreenCanvas(16, 16);
const context = canvas.getContext("2d", { alpha: false, willReadFrequently: true });
// What made the last pictures of this scene fit, so that not each one is encoded several times.
const fit = { quality: 1, scale: 1, since: 0 };

function schedule() {
    clearTimeout(timer);
    if (interval > 0) {
        timer = setTimeout(tick, Math.max(0, due - performance.now()));
    }
}

function tick() {
    postMessage({ tick: true });
    // Keeps the rate over a late timer, but makes up for no more than one.
    due = Math.max(due + interval, performance.now());
    schedule();
}

function setRate(rate) {
    interval = rate > 0 ? 1000 / rate : 0;
    due = performance.now();
    schedule();
}

const evenSize = (size) => Math.max(2, 2 * Math.round(size / 2));

async function encodeOnce(bitmap, width, height, quality) {
    if (canvas.width !== width || canvas.height !== height) {
        canvas.width = width;
        canvas.height = height;
    }
    context.drawImage(bitmap, 0, 0, width, height);
    return canvas.convertToBlob({ type: "image/jpeg", quality });
}

async function encode({ bitmap, width, height, quality }) {
    const now = performance.now();
    let used = Math.min(quality, fit.quality);
    let scale = fit.scale;
    let tries = 0;
    for (;;) {
        const [w, h] = [evenSize(width * scale), evenSize(height * scale)];
        const blob = await encodeOnce(bitmap, w, h, used);
        tries += 1;
        if (blob.size > MOST_BYTES) {
            // Smaller, never left out. The size goes only where the quality has.
            if (used > LEAST_QUALITY) {
                used = Math.max(LEAST_QUALITY, used * STEP);
            } else {
                scale *= STEP;
            }
            continue;
        }
        if (tries > 1) {
            Object.assign(fit, { quality: used, scale, since: now });
        } else if (now - fit.since > RELAX_MS && blob.size < ROOMY * MOST_BYTES) {
            fit.since = now;
            if (fit.scale < 1) {
                fit.scale = Math.min(1, fit.scale / STEP);
            } else {
                fit.quality = Math.min(1, fit.quality / STEP);
            }
        }
        return { jpeg: await blob.arrayBuffer(), width: w, height: h };
    }
}

onmessage = async ({ data }) => {
    if (data.rate !== undefined) {
        setRate(data.rate);
        return;
    }
    let result = { jpeg: null, width: 0, height: 0 };
    try {
        result = await encode(data);
    } catch {
        // No memory, or a picture that is none: the next one may be.
    }
    data.bitmap.close();
    postMessage(result, result.jpeg === null ? [] : [result.jpeg]);
};

setInterval(() => postMessage({ beat: true }), BEAT_MS);
