// How much is sent over a line that is sometimes slow: first the quality goes down, then the size, then the rate, and
// back up in the other order.
//
// The measure is how long acknowledgements take beyond the line's own answer time, which the answers to the small pings
// tell: that time a picture spends in a queue or on a thin line, and less of it helps. Distance it cannot help.

const SIZES = [[320, 240], [640, 480], [1280, 720]];
const QUALITIES = [0.6, 0.5, 0.4, 0.3];
const SLOW_AT_MS = [250, 500]; // least and most of what counts as slow
const EASY = 0.5; // of that, below which there is room for more
const SLOW_FOR_MS = 600; // before a step down, so that a single hiccup is none
const STEP_MS = 1000; // between two steps down
const EASY_FOR_MS = 4000; // before a step up...
const MOST_EASY_FOR_MS = 60000; // ...which doubles to this when the steps up do not last
const SMOOTHING = 0.3;

export class Pace {
    #ladder = [];
    #level = 0;
    #excess = 0;
    #slowSince = null;
    #easySince = null;
    #lastStep = -Infinity;
    #steppedUp = -Infinity;
    #patience = EASY_FOR_MS;

    constructor(size, rate) {
        this.wish(size, rate);
    }

    // What the person wants: "640x480", pictures a second. The line has to show again what it cannot carry.
    wish(size, rate) {
        const sizes = SIZES.slice(0, SIZES.findIndex((known) => known.join("x") === size) + 1).reverse();
        this.#ladder = QUALITIES.map((quality) => ({ size: sizes[0], quality, rate }));
        const least = QUALITIES.at(-1);
        this.#ladder.push(...sizes.slice(1).map((smaller) => ({ size: smaller, quality: least, rate })));
        for (let slower = rate; slower > 1;) {
            slower = Math.max(1, Math.floor(slower / 2));
            this.#ladder.push({ size: sizes.at(-1), quality: least, rate: slower });
        }
        this.#level = 0;
        this.#excess = 0;
        this.#slowSince = this.#easySince = null;
        this.#patience = EASY_FOR_MS;
    }

    // {size: [long side, short side], quality, rate}
    get now() {
        return this.#ladder[this.#level];
    }

    // delay: from sending to the acknowledgement; answerTime: of the line. All in ms.
    acknowledged(delay, answerTime, now) {
        this.#excess += SMOOTHING * (Math.max(0, delay - answerTime) - this.#excess);
        // Two pictures are under way: what they take must leave room for the rate.
        const slow = Math.min(Math.max(1800 / this.now.rate - answerTime, SLOW_AT_MS[0]), SLOW_AT_MS[1]);
        this.#slowSince = this.#excess > slow ? (this.#slowSince ?? now) : null;
        this.#easySince = this.#excess < EASY * slow ? (this.#easySince ?? now) : null;
        if (this.#slowSince !== null && now - this.#slowSince >= SLOW_FOR_MS && now - this.#lastStep >= STEP_MS) {
            this.#down(now);
        } else if (this.#easySince !== null && now - this.#easySince >= this.#patience) {
            this.#up(now);
        }
    }

    #down(now) {
        if (this.#level + 1 >= this.#ladder.length) {
            return;
        }
        // A step up that had to be taken back was one too many: the next one waits longer.
        const tooSoon = now - this.#steppedUp < 2 * this.#patience;
        this.#patience = tooSoon ? Math.min(2 * this.#patience, MOST_EASY_FOR_MS) : EASY_FOR_MS;
        this.#level += 1;
        this.#lastStep = now;
        this.#slowSince = null;
    }

    #up(now) {
        this.#easySince = now;
        if (this.#level > 0) {
            this.#level -= 1;
            this.#steppedUp = now;
        }
    }
}
