// A code beside each camera that makes a phone that camera, for those who may hand it out.
//
// Behind each code stands a link of the host's that is good once and for some minutes. So a tile has one only while it
// is on the screen, a fresh one before the old one ends, and none is left behind when the page goes.

import { setText } from "../shared/view.js";

const RENEW_SECONDS = 60; // before its end
const TICK_MS = 1000;
const AGAIN_SECONDS = 30; // after a failure

export class PhoneLinks {
    #dialog;
    #parts = {};
    #links = new Map(); // by the camera's name: {token, url, svg, until}; null while one is being made
    #notBefore = new Map(); // by the camera's name: performance.now() before which none is asked for again
    #visible = [];
    #allowed = true; // until the host says otherwise
    #open = null; // the tile whose code is shown large

    constructor(dialog) {
        this.#dialog = dialog;
        for (const element of dialog.querySelectorAll("[data-part]")) {
            this.#parts[element.dataset.part] = element;
        }
        this.#parts.close.addEventListener("click", () => dialog.close());
        this.#parts.renew.addEventListener("click", () => this.#renew(this.#open));
        this.#parts.revoke.addEventListener("click", () => this.#revokeOpen());
        dialog.addEventListener("close", () => (this.#open = null));
        addEventListener("pagehide", () => this.#forgetAll());
        setInterval(() => this.#tick(), TICK_MS);
    }

    attach(tile) {
        tile.parts.phone.setAttribute("aria-label", `Code that makes a phone the camera ${tile.camera.name}`);
        tile.parts.phone.addEventListener("click", () => this.#show(tile));
    }

    // The tiles on the screen, all of them.
    show(tiles) {
        this.#visible = tiles;
        this.#tick();
    }

    #tick() {
        if (document.hidden || !this.#allowed) {
            return;
        }
        for (const tile of this.#visible) {
            const link = this.#links.get(tile.camera.name);
            const due = link === undefined || (link !== null && secondsLeft(link) < RENEW_SECONDS);
            if (due && performance.now() >= (this.#notBefore.get(tile.camera.name) ?? 0)) {
                this.#renew(tile);
            }
        }
        this.#renderDialog();
    }

    async #renew(tile) {
        const { name } = tile.camera;
        const old = this.#links.get(name);
        if (old === null) {
            return;
        }
        this.#links.set(name, null);
        this.#notBefore.set(name, performance.now() + AGAIN_SECONDS * 1000);
        let link;
        try {
            const answer = await fetch(`/links?camera=${encodeURIComponent(name)}`, { method: "POST" });
            if (answer.status === 401 || answer.status === 403) {
                this.#allowed = false;
            } else if (answer.status === 201) {
                const made = await answer.json();
                link = { ...made, until: performance.now() + made.seconds * 1000 };
            }
        } catch {
            // The host is away: once it is back, there will be another turn.
        }
        if (old !== undefined) {
            revoke(old);
        }
        if (link === undefined) {
            this.#links.delete(name);
        } else {
            this.#links.set(name, link);
        }
        this.#render(tile, link);
    }

    #render(tile, link) {
        const { phone, code } = tile.parts;
        phone.hidden = link === undefined;
        if (link !== undefined) {
            code.src = pictureOf(link);
        }
        this.#renderDialog();
    }

    #renderDialog() {
        if (this.#open === null) {
            return;
        }
        const link = this.#links.get(this.#open.camera.name);
        const there = link !== undefined && link !== null && secondsLeft(link) > 0;
        const parts = this.#parts;
        setText(parts.name, this.#open.camera.name);
        parts.code.hidden = parts.revoke.hidden = !there;
        setText(parts.address, there ? link.url : "");
        if (there) {
            const left = Math.ceil(secondsLeft(link) / 60);
            parts.code.src = pictureOf(link);
            setText(parts.state, `Good once, for ${left} more ${left === 1 ? "minute" : "minutes"}.`);
        } else {
            setText(parts.state, link === null ? "One moment." : "There is no link now.");
        }
    }

    // Always a new one: the host does not tell whether the one on the tile was used.
    #show(tile) {
        this.#open = tile;
        this.#renew(tile);
        this.#renderDialog();
        this.#dialog.showModal();
    }

    #revokeOpen() {
        const { name } = this.#open.camera;
        const link = this.#links.get(name);
        if (link !== undefined && link !== null) {
            revoke(link);
            this.#links.delete(name);
            this.#notBefore.set(name, Infinity); // until somebody asks for one
            this.#render(this.#open, undefined);
            this.#open.parts.phone.hidden = false;
            this.#open.parts.code.removeAttribute("src");
        }
    }

    #forgetAll() {
        for (const link of this.#links.values()) {
            if (link !== null) {
                revoke(link);
            }
        }
        this.#links.clear();
    }
}

function secondsLeft(link) {
    return (link.until - performance.now()) / 1000;
}

function pictureOf(link) {
    return `data:image/svg+xml,${encodeURIComponent(link.svg)}`;
}

function revoke(link) {
    fetch(`/links/${link.token}`, { method: "DELETE", keepalive: true }).catch(() => {});
}
