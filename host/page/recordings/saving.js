// A part of the recordings as a file: what is marked, in which form, how far it has come, and how to stop it.
//
// The browser takes the file as any download. The server tells how far it has written, by a number that this page gives it.

import { setHidden, setText } from "../shared/view.js";
import { text } from "../shared/words.js";

const ASK_MS = 500;
const GONE_AFTER_MS = 10000; // without a word of it, a download was never begun, or has ended long ago
const ENDS = { whole: "savedWhole", empty: "savedNothing" };

function randomNumber() {
    const bytes = crypto.getRandomValues(new Uint8Array(16));
    return [...bytes].map((byte) => byte.toString(16).padStart(2, "0")).join("");
}

export class Saving {
    #page; // the elements, by their ids
    #base;
    #query;
    #handlers;
    #id = null; // of what is being saved
    #timer = 0;
    #asked = 0; // performance.now() when the server last knew of it
    from = null;
    to = null;

    // now(): the moment that is looked at. changed(): another range is marked. textOf(time).
    constructor(page, base, query, handlers) {
        this.#page = page;
        this.#base = base;
        this.#query = query;
        this.#handlers = handlers;
        page["from-here"].addEventListener("click", () => this.mark("from"));
        page["to-here"].addEventListener("click", () => this.mark("to"));
        page.form.addEventListener("change", () => this.#show());
        page.saving.addEventListener("submit", (event) => {
            event.preventDefault();
            this.#begin();
        });
        page.stop.addEventListener("click", () => this.#stop());
        this.#show();
    }

    // The end that is marked already goes where it makes no sense any more.
    mark(which) {
        this[which] = Math.round(this.#handlers.now());
        if (this.from !== null && this.to !== null && this.from > this.to) {
            this[which === "from" ? "to" : "from"] = null;
        }
        this.#show();
        this.#handlers.changed();
        this.lookForAway();
    }

    // Whether a host that does not answer may have some of what is marked: a file lacks that.
    async lookForAway() {
        const { from, to } = this;
        let told = "";
        if (from !== null && to !== null) {
            try {
                const answer = await fetch(`${this.#base}/export?from=${from}&to=${to}${this.#query}`, { method: "HEAD", cache: "no-store" });
                told = answer.headers.get("X-Recordings-Away") ?? "";
            } catch {
                // No server for now.
            }
        }
        if (from === this.from && to === this.to) {
            const hosts = told.split(", ").map((host) => host.split(";")[0]).filter((host) => host !== "");
            setText(this.#page.missing, hosts.map((host) => text("hostAway", host)).join(" "));
        }
    }

    #show() {
        const { from, to } = this;
        setText(this.#page.from, from === null ? "–" : this.#handlers.textOf(from));
        setText(this.#page.to, to === null ? "–" : this.#handlers.textOf(to));
        setHidden(this.#page["faster-label"], this.#page.form.value !== "lapse");
        this.#page.save.disabled = from === null || to === null || this.#id !== null;
        setHidden(this.#page.stop, this.#id === null);
        setHidden(this.#page.progress, this.#id === null);
    }

    #address(path, more = "") {
        return `${this.#base}/${path}?id=${this.#id}${more}${this.#query}`;
    }

    #begin() {
        this.#id = randomNumber();
        const speed = this.#page.form.value === "lapse" ? `&speed=${this.#page.faster.value}` : "";
        const link = document.createElement("a");
        link.href = this.#address("export", `&form=${this.#page.form.value}&from=${this.from}&to=${this.to}${speed}`);
        link.download = "";
        document.body.append(link);
        link.click();
        link.remove();
        this.#page.progress.value = 0;
        this.#asked = performance.now();
        setText(this.#page.saved, text("savingBegins"));
        this.#show();
        this.lookForAway();
        this.#timer = setTimeout(() => this.#ask(), ASK_MS);
    }

    async #ask() {
        const id = this.#id;
        let state = null;
        try {
            const answer = await fetch(this.#address("export/state"), { cache: "no-store" });
            state = answer.ok ? await answer.json() : null;
        } catch {
            // No server for now.
        }
        if (this.#id !== id) {
            return;
        }
        if (state !== null) {
            this.#asked = performance.now();
            this.#page.progress.value = state.done;
            setText(this.#page.saved, text("savingPercent", Math.floor(state.done * 100)));
        }
        if (state?.ended || performance.now() - this.#asked > GONE_AFTER_MS) {
            this.#end(text(ENDS[state?.ended] ?? "savingFailed"));
        } else {
            this.#timer = setTimeout(() => this.#ask(), ASK_MS);
        }
    }

    #stop() {
        fetch(this.#address("export"), { method: "DELETE", keepalive: true }).catch(() => {});
        this.#end(text("savingStopped"));
    }

    #end(words) {
        clearTimeout(this.#timer);
        this.#id = null;
        setText(this.#page.saved, words);
        this.#show();
    }
}
