// Keeps the screen on while wanted. A phone takes that back whenever the page is not in front, and may refuse it.

export class Awake {
    refused = false;
    #wanted = false;
    #lock = null;
    #onChange;

    constructor(onChange) {
        this.#onChange = onChange;
        document.addEventListener("visibilitychange", () => this.#ask());
    }

    want(wanted) {
        this.#wanted = wanted;
        if (wanted) {
            this.#ask();
        } else {
            this.refused = false;
            this.#lock?.release().catch(() => {});
            this.#lock = null;
        }
    }

    async #ask() {
        if (!this.#wanted || document.hidden || this.#lock?.released === false) {
            return;
        }
        try {
            this.#lock = await navigator.wakeLock.request("screen");
            this.#lock.addEventListener("release", () => this.#ask());
            this.refused = false;
        } catch {
            this.refused = true; // no such lock in this browser, or an empty battery
        }
        if (!this.#wanted) {
            this.want(false); // no longer, when it came
        }
        this.#onChange();
    }
}
