// The controls of the browser phone that is a camera, for administrators: what they show is what the phone reports.

import { setHidden, setText } from "../shared/view.js";
import { text } from "../shared/words.js";

const SIZES = ["320x240", "640x480", "1280x720"];
const MOST_RATE = 15;
const SETTLE_MS = 3000; // after which the phone has obeyed, or has not
const COMPLAINT_MS = 4000;

function make(tag, properties, ...children) {
    const element = Object.assign(document.createElement(tag), properties);
    element.append(...children);
    return element;
}

const choice = (label, options) => make("select", { ariaLabel: label }, ...options);

// The choice that a reported size belongs to; the page may send less on a slow line, and upright.
function sizeOf({ width, height }) {
    const long = Math.max(width, height);
    return SIZES.find((size) => Number(size.split("x")[0]) >= long) ?? SIZES.at(-1);
}

export class RemoteControl {
    #root;
    #name = "";
    #phone = null; // what it reported last
    #touched = -SETTLE_MS; // when somebody last chose or asked for something, that the phone has to report yet
    #light = make("button", { type: "button" }, text("light"));
    #turn = make("button", { type: "button" }, text("otherCamera"));
    #size = choice(text("size"), SIZES.map((size) => new Option(size.replace("x", " × "), size)));
    #rate = choice(text("rate"), Array.from({ length: MOST_RATE }, (_, n) => new Option(text("perSecond", n + 1), n + 1)));
    #complaint = make("p", { className: "remote-complaint", role: "status" });

    // root: an empty element for the controls.
    constructor(root) {
        this.#root = root;
        root.role = "group";
        root.append(this.#light, this.#turn, this.#size, this.#rate, this.#complaint);
        this.#light.addEventListener("click", () => this.#ask({ torch: this.#phone.torch !== true }));
        this.#turn.addEventListener("click", () => this.#ask({ facing: this.#phone.facing === "user" ? "environment" : "user" }));
        this.#size.addEventListener("change", () => {
            const [width, height] = this.#size.value.split("x").map(Number);
            this.#ask({ width, height });
        });
        for (const select of [this.#size, this.#rate]) {
            select.addEventListener("pointerdown", () => (this.#touched = performance.now()));
        }
        this.#rate.addEventListener("change", () => this.#ask({ rate: Number(this.#rate.value) }));
    }

    // phone: of the camera's information; null for any other phone, and for who may not control one.
    render(name, phone) {
        setHidden(this.#root, phone === null);
        if (phone === null) {
            return;
        }
        if (name !== this.#name) {
            this.#name = name;
            this.#touched = -SETTLE_MS;
            this.#root.setAttribute("aria-label", text("remoteControl", name));
        }
        this.#phone = phone;
        setHidden(this.#light, phone.torch === null);
        this.#light.setAttribute("aria-pressed", String(phone.torch === true));
        for (const control of [this.#light, this.#turn, this.#size, this.#rate]) {
            control.disabled = phone.state !== "running";
        }
        if (performance.now() - this.#touched > SETTLE_MS) {
            this.#size.value = sizeOf(phone);
            this.#rate.value = phone.rate;
        }
    }

    async #ask(wish) {
        this.#touched = performance.now();
        let obeyed = false;
        try {
            const answer = await fetch(new URL(`/cameras/${encodeURIComponent(this.#name)}/control`, location.origin), {
                method: "POST", body: JSON.stringify(wish), headers: { "Content-Type": "application/json" },
            });
            obeyed = answer.ok;
        } catch {
            // The host is away; the page says so elsewhere.
        }
        setText(this.#complaint, obeyed ? "" : text("notObeyed"));
        if (!obeyed) {
            this.#touched = -SETTLE_MS;
            setTimeout(() => setText(this.#complaint, ""), COMPLAINT_MS);
        }
    }
}
