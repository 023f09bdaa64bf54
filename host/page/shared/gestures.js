// What fingers do on a picture: one that swipes to the side, one that moves it, two that spread or close.
//
// The browser must leave all of that to the page: the element has touch-action: none. Mice and pens are not heard.

const LEAST_SWIPE_PX = 48;
const LONGEST_SWIPE_MS = 600;

const middle = (a, b) => ({ x: (a.x + b.x) / 2, y: (a.y + b.y) / 2 });
const distance = (a, b) => Math.max(Math.hypot(a.x - b.x, a.y - b.y), 1);

export class Gestures {
    #fingers = new Map(); // by the browser's number: {from, at}
    #begun = 0; // of the first finger, on the clock of events
    #several = false; // since then there have been two
    #handlers;

    // swiped(step): to the next one (1), or the one before (-1).
    // maySwipe(): whether one finger that moves is that; otherwise it moves the picture.
    // changing({scale, from, to}), changed({scale, from, to}): the point `from` of the screen has come to `to`, and what is
    // around it has grown by `scale`; changing(null): nothing comes of it.
    constructor(element, { swiped, maySwipe = () => true, changing = () => {}, changed = () => {} }) {
        this.#handlers = { swiped, maySwipe, changing, changed };
        element.addEventListener("pointerdown", (event) => this.#down(event));
        element.addEventListener("pointermove", (event) => this.#move(event));
        element.addEventListener("pointerup", (event) => this.#up(event));
        element.addEventListener("pointercancel", () => this.#cancel());
    }

    #down(event) {
        if (event.pointerType !== "touch") {
            return;
        }
        if (event.isPrimary) {
            this.#fingers.clear();
            this.#begun = event.timeStamp;
            this.#several = false;
        }
        const at = { x: event.clientX, y: event.clientY };
        this.#fingers.set(event.pointerId, { from: at, at });
        if (this.#fingers.size === 2) {
            this.#several = true;
            for (const finger of this.#fingers.values()) {
                finger.from = finger.at;
            }
        }
    }

    #move(event) {
        const finger = this.#fingers.get(event.pointerId);
        if (finger === undefined) {
            return;
        }
        finger.at = { x: event.clientX, y: event.clientY };
        if (this.#several || !this.#handlers.maySwipe()) {
            this.#handlers.changing(this.#change());
        }
    }

    #up(event) {
        const finger = this.#fingers.get(event.pointerId);
        if (finger === undefined) {
            return;
        }
        const change = this.#change();
        this.#fingers.clear(); // what the other finger still does is nothing new
        if (this.#several || !this.#handlers.maySwipe()) {
            this.#handlers.changed(change);
            return;
        }
        const right = finger.at.x - finger.from.x;
        const down = finger.at.y - finger.from.y;
        const quick = event.timeStamp - this.#begun <= LONGEST_SWIPE_MS;
        if (quick && Math.abs(right) >= LEAST_SWIPE_PX && Math.abs(right) > 2 * Math.abs(down)) {
            this.#handlers.swiped(right < 0 ? 1 : -1);
        }
    }

    #cancel() {
        this.#fingers.clear();
        this.#handlers.changing(null);
    }

    #change() {
        const [first, second] = this.#fingers.values();
        return second === undefined ? { scale: 1, from: first.from, to: first.at } : {
            scale: distance(first.at, second.at) / distance(first.from, second.from),
            from: middle(first.from, second.from), to: middle(first.at, second.at),
        };
    }
}
