// One camera in the wall.

import { text } from "../shared/words.js";
import { CameraView, setHidden } from "../shared/view.js";
import { RemoteControl } from "./remote.js";

const template = document.getElementById("tile-template");

export class Tile extends CameraView {
    #latest = null; // the picture being decoded
    #remote = new RemoteControl(this.parts.remote);
    isSmall = false; // shows no stage

    constructor(camera, { openLarge, connectPhone }) {
        super(template.content.firstElementChild.cloneNode(true));
        this.camera = camera;
        this.nameIt(camera);
        this.root.dataset.name = camera.name;
        this.parts.open.setAttribute("aria-label", text("openLarge", camera.name));
        this.parts.open.addEventListener("click", () => openLarge(camera.name));
        for (const button of [this.parts.connect, this.parts.phone]) {
            button.setAttribute("aria-label", text("connectPhoneAs", camera.name));
            button.addEventListener("click", () => connectPhone(camera.name));
        }
    }

    render(camera, hostNow, connectedToHost, offers) {
        super.render(camera, hostNow, connectedToHost, offers);
        this.#remote.render(camera.name, offers.control ? camera.browserPhone : null);
        // Where the notice has the button, one is enough.
        setHidden(this.parts.phone, !offers.phone || (!this.parts.connect.hidden && !this.isSmall));
    }

    // Resolves to true when the picture is on the canvas, to false when it is none or a newer one overtook it.
    async show(picture) {
        this.#latest = picture;
        let bitmap;
        try {
            bitmap = await createImageBitmap(picture.jpeg);
        } catch {
            return false;
        }
        const current = this.#latest === picture;
        if (current) {
            this.paint(bitmap);
            this.camera.pictureDrawn(picture);
            const { dataset } = this.root;
            dataset.seq = picture.sequence;
            dataset.arrived = picture.arrived;
            dataset.drawn = this.camera.drawn;
        }
        bitmap.close();
        return current;
    }
}
