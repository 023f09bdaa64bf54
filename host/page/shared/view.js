// What a tile and the large view have in common: a stage with the picture or a placeholder, and the facts below it.

import { text } from "./words.js";
import { agoText, rateText, sizeText } from "./text.js";

// Text nodes are written only when they change: thirty tiles are looked at several times a second.
export function setText(element, words) {
    if (element.textContent !== words) {
        element.textContent = words;
    }
}

export function setHidden(element, hidden) {
    if (element.hidden !== hidden) {
        element.hidden = hidden;
    }
}

// root holds one element for each data-part; names and other texts from the host go in as text, never as markup.
export class CameraView {
    constructor(root) {
        this.root = root;
        this.parts = {};
        for (const element of root.querySelectorAll("[data-part]")) {
            this.parts[element.dataset.part] = element;
        }
        this.canvas = this.parts.picture;
        this.context = this.canvas.getContext("2d", { alpha: false });
    }

    // source: an ImageBitmap or another canvas.
    paint(source) {
        if (this.canvas.width !== source.width || this.canvas.height !== source.height) {
            this.canvas.width = source.width;
            this.canvas.height = source.height;
        }
        this.context.drawImage(source, 0, 0);
    }

    nameIt(camera) {
        setText(this.parts.name, camera.name);
        this.canvas.setAttribute("aria-label", text("pictureFrom", camera.name));
        this.parts.view.href = `/view/${camera.path}`;
        this.parts.view.setAttribute("aria-label", text("viewAsPhone", camera.name));
        this.parts.snapshot.href = `/snapshot/${camera.path}.jpg`;
        this.parts.snapshot.setAttribute("aria-label", text("snapshotOf", camera.name));
        this.parts.stream.href = `/live/${camera.path}`;
        this.parts.stream.setAttribute("aria-label", text("streamOf", camera.name));
        this.parts.back.href = `/recordings/${camera.path}?back=30`;
        this.parts.back.setAttribute("aria-label", text("ago30Of", camera.name));
    }

    // offers: what who looks may do now: `phone`, make a phone a camera; `control`, control one that is; `recordings`, a set
    // of the cameras that can be looked back at.
    render(camera, hostNow, connectedToHost, offers) {
        const { parts, root } = this;
        const status = camera.status(hostNow, connectedToHost);
        const age = camera.age(hostNow);
        const { info } = camera;
        if (root.dataset.state !== status.state) {
            root.dataset.state = status.state;
        }
        setText(parts.state, status.word);
        setText(parts.size, sizeText(info.width, info.height));
        setText(parts.rate, rateText(connectedToHost && info.connected ? info.fps : null));
        setText(parts.age, agoText(age));

        setHidden(parts.notice, status.state === "live");
        setText(parts.title, status.title);
        setText(parts.detail, status.detail);
        setHidden(parts.detail, status.detail === "");
        setHidden(parts.connect, !(offers.phone && camera.isFree));
        // Without a picture of the past there is nothing to see large, and nothing behind two of the links.
        setHidden(parts.picture, camera.sequence === null);
        setHidden(parts.snapshot, camera.newest === null);
        setHidden(parts.stream, camera.newest === null);
        setHidden(parts.back, !offers.recordings.has(camera.name));
    }
}
