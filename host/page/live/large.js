// The large view of one camera: a dialog that follows the address, so that #NAME can be kept as a bookmark and the
// browser's Back closes it.

import { FullScreen } from "../shared/fullscreen.js";
import { Gestures } from "../shared/gestures.js";
import { text } from "../shared/words.js";
import { CameraView, setHidden, setText } from "../shared/view.js";
import { RemoteControl } from "./remote.js";

function nameInAddress() {
    try {
        return decodeURIComponent(location.hash.slice(1));
    } catch {
        return ""; // not one of ours
    }
}

export class LargeView extends CameraView {
    #tiles; // Map of name to Tile, in the order of the wall; owned by the page
    #tile = null;
    #remote = new RemoteControl(this.parts.remote);
    #opened = false; // the entry in the history is of our making
    #full;
    #changed; // told after the view has opened, turned to another camera, or closed

    constructor(dialog, tiles, { changed, connectPhone }) {
        super(dialog);
        this.#tiles = tiles;
        this.#changed = changed;
        for (const button of [this.parts.connect, this.parts.phone]) {
            button.addEventListener("click", () => connectPhone(this.#tile.camera.name));
        }
        this.#full = new FullScreen(this.parts.full, this.parts.stage, dialog);
        new Gestures(this.parts.stage, { swiped: (step) => this.#turn(step) });
        this.parts.close.addEventListener("click", () => dialog.close());
        this.parts.previous.addEventListener("click", () => this.#turn(-1));
        this.parts.next.addEventListener("click", () => this.#turn(1));
        dialog.addEventListener("close", () => this.#closed());
        dialog.addEventListener("keydown", (event) => {
            if (event.altKey || event.ctrlKey || event.metaKey) {
                return;
            }
            if (event.key === "ArrowLeft" || event.key === "ArrowRight") {
                event.preventDefault();
                this.#turn(event.key === "ArrowLeft" ? -1 : 1);
            }
        });
        addEventListener("popstate", () => this.followAddress());
        addEventListener("hashchange", () => this.followAddress());
    }

    // The camera that is open; null when none is.
    get camera() {
        return this.#tile === null ? null : this.#tile.camera;
    }

    open(name) {
        history.pushState(null, "", `#${encodeURIComponent(name)}`);
        this.#opened = true;
        this.followAddress();
    }

    // Called for a changed address and for a changed list of cameras.
    followAddress() {
        const tile = this.#tiles.get(nameInAddress()) ?? null;
        if (tile === this.#tile) {
            return;
        }
        this.#tile = tile;
        if (tile === null) {
            this.#opened = false;
            this.root.close();
            return;
        }
        this.nameIt(tile.camera);
        this.root.setAttribute("aria-label", text("cameraNamed", tile.camera.name));
        this.follow(tile);
        if (!this.root.open) {
            this.root.showModal();
            // Focus on "Close" would let a stray blank close the view; the picture's frame takes it.
            this.parts.stage.focus({ preventScroll: true });
        }
        this.#changed();
    }

    // Copies the picture that has just been drawn on its tile.
    follow(tile) {
        if (tile === this.#tile && tile.camera.sequence !== null) {
            this.paint(tile.canvas);
        }
    }

    render(camera, hostNow, connectedToHost, offers) {
        super.render(camera, hostNow, connectedToHost, offers);
        this.#remote.render(camera.name, offers.control ? camera.browserPhone : null);
        setHidden(this.parts.phone, !offers.phone || !this.parts.connect.hidden);
        const { frames, failed } = camera.info;
        setText(this.parts.total, failed > 0 ? text("undecodable", frames, failed) : `${frames}`);
        const alone = this.#tiles.size < 2;
        this.parts.previous.disabled = alone;
        this.parts.next.disabled = alone;
    }

    #turn(step) {
        const names = [...this.#tiles.keys()];
        const index = names.indexOf(this.#tile.camera.name);
        const name = names[(index + step + names.length) % names.length];
        history.replaceState(null, "", `#${encodeURIComponent(name)}`);
        this.followAddress();
    }

    #closed() {
        this.#full.leave();
        if (this.#tile !== null) {
            const { open } = this.#tile.parts;
            this.#tile = null;
            if (this.#opened) {
                this.#opened = false;
                history.back();
            } else {
                history.replaceState(null, "", location.pathname + location.search);
            }
            open.focus({ preventScroll: true });
        }
        this.#changed();
    }
}
