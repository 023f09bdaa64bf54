// Turns what the camera shows into pictures on the link: at the rate that is wanted, no more than the line takes.

import { Pace } from "./pace.js";

const UNWATCHED_RATE = 1;
const FORECAST_MS = 10000; // of the past, by which the next hour is judged
const LEAST_FORECAST_MS = 3000;

export class Sender {
    bytes = 0; // since the start
    width = 0; // of the last picture, as is the height
    height = 0;
    #video;
    #link;
    #pace;
    #worker;
    #rate = 0;
    #runs = false;
    #due = false;
    #encoding = false;
    #recent = []; // [time, bytes]
    #handlers;

    // handlers: onBeat() once a second, also while the page is hidden
    constructor(video, link, size, rate, handlers) {
        this.#video = video;
        this.#link = link;
        this.#pace = new Pace(size, rate);
        this.#handlers = handlers;
        this.#worker = new Worker(new URL("worker.js", import.meta.url));
        this.#worker.onmessage = ({ data }) => this.#hear(data);
    }

    // What it sends at most now: {size, quality, rate}, less than what is wanted on a slow line.
    get pace() {
        return this.#pace.now;
    }

    wish(size, rate) {
        this.#pace.wish(size, rate);
        this.update();
    }

    // Whether pictures are to go out at all.
    run(runs) {
        if (runs && !this.#runs) {
            this.#recent = [];
        }
        this.#runs = runs;
        this.update();
    }

    startCounting() {
        this.bytes = 0;
        this.width = this.height = 0;
        this.#recent = [];
    }

    // To be called when the link has changed.
    update() {
        const wanted = this.#link.watched ? this.#pace.now.rate : Math.min(UNWATCHED_RATE, this.#pace.now.rate);
        const rate = this.#runs && this.#link.phase === "ready" ? wanted : 0;
        if (rate !== this.#rate) {
            this.#rate = rate;
            this.#due = false;
            this.#worker.postMessage({ rate });
        }
    }

    acknowledged(delay, answerTime) {
        this.#pace.acknowledged(delay, answerTime, performance.now());
        this.update();
        this.#pump();
    }

    // Bytes that an hour like the last seconds takes; null while that is not known.
    get bytesAnHour() {
        const now = performance.now();
        this.#recent = this.#recent.filter(([time]) => now - time < FORECAST_MS);
        if (this.#recent.length < 2 || now - this.#recent[0][0] < LEAST_FORECAST_MS) {
            return null;
        }
        const sum = this.#recent.reduce((bytes, [, size]) => bytes + size, 0);
        return (sum / (now - this.#recent[0][0])) * 3600000;
    }

    #hear(data) {
        if (data.tick) {
            this.#due = true;
            this.#pump();
        } else if (data.beat) {
            this.#handlers.onBeat();
        } else {
            this.#encoding = false;
            this.#send(data);
            this.#pump();
        }
    }

    #send({ jpeg, width, height }) {
        // Stopped or cut off while it was encoded: nobody is to see it now.
        if (jpeg === null || !this.#runs || !this.#link.mayRunMore) {
            return;
        }
        const size = jpeg.byteLength;
        this.#link.sendPicture(jpeg);
        this.bytes += size;
        this.#recent.push([performance.now(), size]);
        [this.width, this.height] = [width, height];
    }

    // One picture at a time, and always the newest: a picture that waits for the line is not taken before.
    async #pump() {
        if (!this.#due || this.#encoding || !this.#runs || !this.#link.mayRunMore) {
            return;
        }
        this.#due = false;
        this.#encoding = true;
        let bitmap;
        try {
            bitmap = await createImageBitmap(this.#video);
        } catch {
            this.#encoding = false; // no frame yet
            return;
        }
        const { size, quality } = this.#pace.now;
        this.#worker.postMessage({ bitmap, ...fitInto(bitmap, size), quality }, [bitmap]);
    }
}

// The size of a picture within the wanted one, whichever way the phone is held. It never grows.
function fitInto({ width, height }, [long, short]) {
    const scale = Math.min(1, long / Math.max(width, height), short / Math.min(width, height));
    return { width: Math.max(1, Math.round(width * scale)), height: Math.max(1, Math.round(height * scale)) };
}
