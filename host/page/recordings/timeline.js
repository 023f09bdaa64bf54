// The line of time below the picture: what was recorded, what moved, what happened, and the place that is looked at.
//
// All moments are Unix milliseconds; only what is written on it is in the zone of the browser, so an hour that a clock has
// twice is two hours wide.

import { Gestures } from "../shared/gestures.js";
import { text } from "../shared/words.js";

const LEAST_MS = 60000; // that the line shows
const MOST_MS = 7 * 86400000;
const CLICK_PX = 3;
// Between two marks, in milliseconds; those of days follow the zone.
const STEPS = [1000, 5000, 15000, 60000, 300000, 900000, 3600000, 3 * 3600000, 6 * 3600000, 12 * 3600000, 86400000];
const MARK_PX = 74;
const MARK_REACH_PX = 6;

export function startOfDay(time) {
    const day = new Date(time);
    day.setHours(0, 0, 0, 0);
    return day.getTime();
}

export function nextDay(time, days = 1) {
    const day = new Date(startOfDay(time));
    day.setDate(day.getDate() + days);
    return day.getTime();
}

export class Timeline {
    #root;
    #canvas;
    #context;
    #handlers;
    #drawn = 0;
    #pinched = null; // what was shown when two fingers came
    #pressed = null; // {x, moved}
    begin = 0; // of what is shown
    end = 86400000;
    time = 0; // what is looked at
    now = Infinity; // nothing is recorded behind it
    data = { spans: [], motion: [], kept: [], away: [], events: [] };
    chosen = { from: null, to: null };

    // sought(time): somebody points at it, again and again while he drags. moved(): another part is shown.
    constructor(root, canvas, { sought, moved, textOf }) {
        this.#root = root;
        this.#canvas = canvas;
        this.#context = canvas.getContext("2d");
        this.#handlers = { sought, moved, textOf };
        root.addEventListener("pointerdown", (event) => this.#down(event));
        root.addEventListener("pointermove", (event) => this.#move(event));
        root.addEventListener("pointerup", (event) => this.#up(event));
        root.addEventListener("pointercancel", () => (this.#pressed = null));
        root.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
        new Gestures(root, {
            swiped: () => {}, maySwipe: () => true,
            changing: (change) => this.#pinch(change), changed: (change) => {
                this.#pinch(change);
                this.#pinched = null;
            },
        });
        new ResizeObserver(() => this.draw()).observe(root);
        matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    }

    get span() {
        return this.end - this.begin;
    }

    show(begin, end) {
        if (this.begin !== begin || this.end !== end) {
            this.begin = begin;
            this.end = end;
            this.#handlers.moved();
            this.draw();
        }
    }

    // Larger than 1: a shorter part, around `around`, which stays where it is.
    zoom(factor, around = this.time) {
        const span = Math.min(Math.max(this.span / factor, LEAST_MS), MOST_MS);
        const centre = around < this.begin || around > this.end ? (this.begin + this.end) / 2 : around;
        const begin = centre - ((centre - this.begin) / this.span) * span;
        this.show(begin, begin + span);
    }

    // Has the part that is shown hold what is looked at.
    follow() {
        if (this.time < this.begin || this.time > this.end) {
            const begin = this.time - this.span / 2;
            this.show(begin, begin + this.span);
        }
    }

    // Is pointed at now.
    get held() {
        return this.#pressed !== null;
    }

    #timeAt(x) {
        const box = this.#root.getBoundingClientRect();
        const share = Math.min(Math.max((x - box.left) / box.width, 0), 1);
        return Math.min(this.begin + share * this.span, this.now);
    }

    #down(event) {
        if (event.button !== 0 || !event.isPrimary) {
            this.#pressed = null; // a second finger: both change what is shown
            return;
        }
        this.#pressed = { x: event.clientX, moved: false };
        this.#root.setPointerCapture(event.pointerId);
        if (event.pointerType !== "touch") {
            this.#handlers.sought(this.#timeAt(event.clientX));
        }
    }

    #move(event) {
        if (this.#pressed === null || !event.isPrimary) {
            this.#name(event.clientX);
            return;
        }
        this.#pressed.moved ||= Math.abs(event.clientX - this.#pressed.x) >= CLICK_PX;
        if (this.#pressed.moved) {
            this.#handlers.sought(this.#timeAt(event.clientX));
        }
    }

    // Says of a mark what happened, to the mouse that rests on it, and of a gap whose it is.
    #name(x) {
        const near = (MARK_REACH_PX / this.#root.clientWidth) * this.span;
        const time = this.#timeAt(x);
        const events = this.data.events.filter((event) => Math.abs(event.time - time) <= near);
        const away = this.data.away.filter(({ from, to }) => time >= from && time <= to);
        this.#root.title = [...away.map(({ host }) => text("hostAway", host)),
            ...events.map((event) => `${this.#handlers.textOf(event.time)}: ${event.text}`)].join("\n");
    }

    #up(event) {
        if (this.#pressed !== null && event.isPrimary) {
            this.#handlers.sought(this.#timeAt(event.clientX));
        }
        this.#pressed = null;
    }

    #wheel(event) {
        event.preventDefault();
        if (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY)) {
            const by = ((event.deltaX || event.deltaY) / this.#root.clientWidth) * this.span;
            this.show(this.begin + by, this.end + by);
        } else {
            this.zoom(event.deltaY < 0 ? 1.25 : 0.8, this.#timeAt(event.clientX));
        }
    }

    #pinch(change) {
        if (change === null || change.scale === 1) {
            return;
        }
        this.#pinched ??= { begin: this.begin, span: this.span };
        const { begin, span } = this.#pinched;
        const box = this.#root.getBoundingClientRect();
        const held = begin + ((change.from.x - box.left) / box.width) * span;
        const next = Math.min(Math.max(span / change.scale, LEAST_MS), MOST_MS);
        const start = held - ((change.to.x - box.left) / box.width) * next;
        this.show(start, start + next);
    }

    // Once a frame, however often it is asked for.
    draw() {
        if (this.#drawn === 0) {
            this.#drawn = requestAnimationFrame(() => {
                this.#drawn = 0;
                this.#paint();
            });
        }
    }

    #paint() {
        const { clientWidth: width, clientHeight: height } = this.#root;
        const scale = devicePixelRatio || 1;
        const [pixelWidth, pixelHeight] = [Math.round(width * scale), Math.round(height * scale)];
        if (this.#canvas.width !== pixelWidth || this.#canvas.height !== pixelHeight) {
            this.#canvas.width = pixelWidth;
            this.#canvas.height = pixelHeight;
        }
        const style = getComputedStyle(this.#root);
        const colour = (name) => style.getPropertyValue(name).trim();
        const to = this.#context;
        to.setTransform(scale, 0, 0, scale, 0, 0);
        to.clearRect(0, 0, width, height);
        const place = (time) => ((time - this.begin) / this.span) * width;
        const bar = ([from, until], top, tall, paint) => {
            if (until >= this.begin && from <= this.end) {
                const left = Math.max(place(from), -2);
                to.fillStyle = paint;
                to.fillRect(left, top, Math.max(Math.min(place(until), width + 2) - left, 1.5), tall);
            }
        };
        to.fillStyle = colour("--sunken");
        to.fillRect(0, 26, width, 34);
        for (const { from, to: until } of this.data.away) {
            bar([from, until], 26, 34, colour("--line"));
            bar([from, until], 41, 4, colour("--muted"));
        }
        for (const span of this.data.spans) {
            bar(span, 26, 34, colour("--accent"));
        }
        for (const span of this.data.kept) {
            bar(span, 26, 4, colour("--text"));
        }
        for (const span of this.data.motion) {
            bar(span, 62, 9, colour("--warn"));
        }
        to.fillStyle = colour("--bad");
        for (const { time } of this.data.events) {
            const x = place(time);
            to.beginPath();
            to.moveTo(x - 4, 83);
            to.lineTo(x + 4, 83);
            to.lineTo(x, 75);
            to.fill();
        }
        this.#paintMarks(to, place, width, colour);
        const { from, to: until } = this.chosen;
        if (from !== null || until !== null) {
            const [left, right] = [place(from ?? until), place(until ?? from)];
            to.strokeStyle = colour("--text");
            to.lineWidth = 2;
            to.strokeRect(left, 24, Math.max(right - left, 2), 38);
        }
        if (Number.isFinite(this.now) && this.now < this.end) {
            to.fillStyle = colour("--veil");
            to.fillRect(place(this.now), 26, width, 34);
        }
        const x = place(this.time);
        to.fillStyle = colour("--text");
        to.fillRect(x - 1, 0, 2, height);
        to.beginPath();
        to.arc(x, 8, 6, 0, 7);
        to.fill();
        this.#root.setAttribute("aria-valuemin", Math.round(this.begin));
        this.#root.setAttribute("aria-valuemax", Math.round(this.end));
        this.#root.setAttribute("aria-valuenow", Math.round(this.time));
        this.#root.setAttribute("aria-valuetext", this.#handlers.textOf(this.time));
    }

    #paintMarks(to, place, width, colour) {
        const step = STEPS.find((each) => (each / this.span) * width >= MARK_PX) ?? STEPS.at(-1);
        const day = startOfDay(this.begin);
        to.font = `12px ${getComputedStyle(this.#root).fontFamily}`;
        to.textBaseline = "top";
        let free = -Infinity;
        // Full hours of the zone: from midnight on where the step is that wide, and over a change of the clock as it comes.
        for (let time = day + Math.floor((this.begin - day) / step) * step; time <= this.end; time = step < 86400000 ? time + step : nextDay(time)) {
            const x = place(time);
            const moment = new Date(time);
            const midnight = moment.getHours() === 0 && moment.getMinutes() === 0 && moment.getSeconds() === 0;
            const words = midnight ? moment.toLocaleDateString(document.documentElement.lang, { day: "numeric", month: "short" })
                : moment.toLocaleTimeString(document.documentElement.lang, { hour: "2-digit", minute: "2-digit", ...(step < 60000 ? { second: "2-digit" } : {}) });
            to.fillStyle = colour("--line");
            to.fillRect(x, 20, 1, 44);
            if (x >= free && x >= 0) {
                to.fillStyle = colour("--muted");
                to.fillText(words, x + 3, 5);
                free = x + 9 + to.measureText(words).width;
            }
        }
    }
}
