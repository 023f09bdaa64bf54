// The code that makes a phone a camera, for those who may hand it out. A phone of today opens a page in its browser, an
// old one fetches a midlet: one link, by two addresses.
//
// Behind a code stands a link of the host's that is good once and for some minutes, and whoever sees it may use it. So
// there is one only when somebody asks for it: never on a page that merely hangs on a wall. It stays good when the page
// goes, since the phone may still be at it; "Revoke" ends it.

import { text } from "../shared/words.js";
import { setText } from "../shared/view.js";

const TICK_MS = 1000;

export class PhoneLinks {
    #dialog;
    #parts = {};
    #name = ""; // of the camera
    #link = null; // {token, url, svg, oldUrl, oldSvg, until}
    #asking = false;
    #answer = 0; // what the host said instead of a link; 0 while it has said nothing

    constructor(dialog) {
        this.#dialog = dialog;
        for (const element of dialog.querySelectorAll("[data-part]")) {
            this.#parts[element.dataset.part] = element;
        }
        this.#parts.close.addEventListener("click", () => dialog.close());
        this.#parts.renew.addEventListener("click", () => this.#renew());
        this.#parts.revoke.addEventListener("click", () => this.#revoke());
        this.#parts.old.addEventListener("change", () => this.#render());
        this.#parts.enlarge.addEventListener("click", () => this.#enlarge(!dialog.classList.contains("large-code")));
        // Escape first leaves the large code.
        dialog.addEventListener("cancel", (event) => {
            if (dialog.classList.contains("large-code")) {
                event.preventDefault();
                this.#enlarge(false);
            }
        });
        // What is not on the screen cannot be read off it later.
        dialog.addEventListener("close", () => {
            this.#enlarge(false);
            this.#take(null);
        });
        setInterval(() => dialog.open && this.#render(), TICK_MS);
    }

    // Always with a new link: the host does not tell whether an old one was used.
    show(name) {
        this.#name = name;
        this.#parts.old.checked = false;
        this.#dialog.showModal();
        this.#renew();
    }

    async #renew() {
        if (this.#asking) {
            return;
        }
        const name = this.#name;
        this.#revoke();
        this.#asking = true;
        this.#answer = 0;
        this.#render();
        let link = null;
        try {
            const answer = await fetch(`/api/v1/cameras/${encodeURIComponent(name)}/link`, { method: "POST" });
            this.#answer = answer.status;
            if (answer.status === 201) {
                const made = await answer.json();
                link = { ...made, until: performance.now() + made.seconds * 1000 };
            }
        } catch {
            // The host is away; the button is there to try again.
        }
        this.#asking = false;
        if (this.#dialog.open && name === this.#name) {
            this.#take(link);
        } else if (link !== null) {
            revoke(link); // nobody has seen it
        }
    }

    #revoke() {
        if (this.#link !== null) {
            revoke(this.#link);
            this.#take(null);
        }
    }

    // To be scanned from across a room, or off a screen of few dots.
    #enlarge(large) {
        this.#dialog.classList.toggle("large-code", large);
        this.#parts.enlarge.setAttribute("aria-pressed", `${large}`);
    }

    #take(link) {
        this.#link = link;
        this.#render();
    }

    #render() {
        const parts = this.#parts;
        const left = this.#link === null ? 0 : (this.#link.until - performance.now()) / 1000;
        const old = parts.old.checked;
        setText(parts.name, text("makePhoneCamera", this.#name));
        setText(parts.note, text(old ? "scanItOld" : "scanIt"));
        parts.enlarge.hidden = parts.revoke.hidden = left <= 0;
        parts.renew.disabled = this.#asking;
        if (left <= 0) {
            this.#enlarge(false);
            parts.code.removeAttribute("src");
            setText(parts.address, "");
            setText(parts.state, this.#asking ? text("oneMoment") : this.#reason());
            return;
        }
        const source = `data:image/svg+xml,${encodeURIComponent(old ? this.#link.oldSvg : this.#link.svg)}`;
        if (parts.code.getAttribute("src") !== source) {
            parts.code.src = source;
        }
        setText(parts.address, old ? this.#link.oldUrl : this.#link.url);
        setText(parts.state, text("goodOnce", Math.ceil(left / 60)));
    }

    #reason() {
        switch (this.#answer) {
        case 404:
            return text("noPasswordYet");
        case 401:
        case 403:
            return text("adminHandsOut");
        default:
            return text("noLink");
        }
    }
}

function revoke(link) {
    fetch(`/links/${link.token}`, { method: "DELETE", keepalive: true }).catch(() => {});
}
