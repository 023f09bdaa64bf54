// Who is told of events: what came of it last, and a button that sends a test.

import { make } from "./field.js";
import { text } from "../shared/words.js";

const LOOK_MS = 5000;
const NAMES = { webhook: "webhook", mqtt: "mqtt" };

const momentText = (moment) => new Date(moment).toLocaleString(document.documentElement.lang, {
    dateStyle: "medium", timeStyle: "medium",
});

function resultText({ on, waiting, last }) {
    const parts = [];
    if (last !== null) {
        parts.push(text(last.good ? "noticeTaken" : "noticeFailed", momentText(last.time), last.text));
    } else {
        parts.push(text(on ? "noticeNone" : "noticeOff"));
    }
    // One that is on its way is no queue.
    if (waiting > 1) {
        parts.push(text("noticesWait", waiting));
    }
    return parts.join(" ");
}

class NoticeLine {
    constructor(name, send) {
        this.result = make("p", { className: "notice-result" });
        this.button = make("button", { type: "button", textContent: text("sendTest") });
        this.button.setAttribute("aria-label", `${text("sendTest")}: ${text(NAMES[name])}`);
        this.button.addEventListener("click", send);
        this.root = make("div", { className: "notice-line" }, make("h3", { className: "entry-name", textContent: text(NAMES[name]) }), this.result, this.button);
        this.result.setAttribute("role", "status");
    }

    show(state) {
        this.root.dataset.good = String(state.last?.good ?? true);
        const words = resultText(state);
        if (this.result.textContent !== words) {
            this.result.textContent = words;
        }
        this.button.hidden = !state.on;
    }
}

// host: read() the states, test(name), complain(error)
export function noticeLines(host) {
    const root = make("div");
    const lines = new Map();

    async function look() {
        let states;
        try {
            states = await host.read();
        } catch {
            return; // what is shown may be old; whoever acts on it is told
        }
        for (const name of Object.keys(NAMES).filter((known) => Object.hasOwn(states, known))) {
            if (!lines.has(name)) {
                lines.set(name, new NoticeLine(name, () => send(name)));
                root.append(lines.get(name).root);
            }
            lines.get(name).show(states[name]);
        }
    }

    async function send(name) {
        const { button } = lines.get(name);
        button.disabled = true;
        try {
            await host.test(name);
        } catch (error) {
            host.complain(error);
        }
        button.disabled = false;
        button.focus();
        await look();
    }

    return {
        root,
        look,
        begin() {
            look();
            setInterval(() => document.hidden || look(), LOOK_MS);
        },
    };
}
