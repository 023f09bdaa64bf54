// What the page knows of one camera, and what may be claimed about it.
//
// The states of a camera on the page, as in the data-state of its tile:
//   live     its phone is connected and the picture on the screen is fresh
//   stalled  its phone is connected, but the picture on the screen is old
//   waiting  no picture has come yet: no phone was ever here, or one has just connected
//   paused   its phone is a browser that shows something else now, or is locked or in a call
//   offline  its phone is gone
//   lost     the page has no connection to the host, so nothing can be said

import { spanText, timeText } from "../shared/text.js";
import { text } from "../shared/words.js";

const FRESH_SECONDS = 3;

export class Camera {
    constructor(name) {
        this.name = name;
        this.id = 0; // changes when the host restarts; the name does not
        this.info = null; // the camera's entry in the last state message
        this.sequence = null; // of the picture on the screen, as are the next three
        this.arrived = null; // at the host, Unix milliseconds on the host's clock
        this.drawn = null; // Unix milliseconds on this device's clock
        this.newest = null; // arrival of the newest picture at the host, drawn or not, on the host's clock
        this.hadPhone = false;
    }

    // hostNow: the host's clock when it wrote `info`, Unix milliseconds.
    update(info, hostNow) {
        this.id = info.id;
        this.info = info;
        this.hadPhone ||= info.connected || info.frames > 0 || info.age !== null;
        if (info.age !== null) {
            this.newest = hostNow - info.age * 1000;
        }
    }

    pictureDrawn(picture) {
        this.sequence = picture.sequence;
        this.arrived = picture.arrived;
        this.drawn = performance.timeOrigin + performance.now();
        this.newest = Math.max(this.newest ?? 0, picture.arrived);
    }

    // Seconds since the last picture came to the host; null when none did.
    age(hostNow) {
        return this.newest === null ? null : Math.max(0, hostNow - this.newest) / 1000;
    }

    // True while pictures come to the host, whether the page looks at them or not.
    delivers(hostNow) {
        return this.info.connected && this.newest !== null && this.age(hostNow) < FRESH_SECONDS;
    }

    // Seconds since the picture on the screen came to the host; null without one.
    #pictureAge(hostNow) {
        return this.arrived === null ? null : Math.max(0, hostNow - this.arrived) / 1000;
    }

    // The state, the word for it, and what a placeholder over the picture says (a title and a detail).
    status(hostNow, connectedToHost) {
        const age = this.age(hostNow);
        const last = age === null ? "" : text("lastPictureAt", timeText(age));
        if (!connectedToHost) {
            return { state: "lost", word: text("lost"), title: text("lossTitle"), detail: last || text("tryingAgain") };
        }
        if (this.browserPhone?.state === "paused") {
            return { state: "paused", word: text("paused"), title: text("phonePaused"), detail: last };
        }
        if (!this.info.connected) {
            if (!this.hadPhone) {
                return { state: "waiting", word: text("waiting"), title: text("noPhoneYet"), detail: "" };
            }
            return { state: "offline", word: text("offline"), title: text("phoneNotConnected"), detail: last };
        }
        if (age === null) {
            const detail = text(this.info.failed > 0 ? "cannotDecode" : "waitingForFirst");
            return { state: "waiting", word: text("waiting"), title: text("phoneConnected"), detail };
        }
        if (age >= FRESH_SECONDS) {
            return { state: "stalled", word: text("stalled"), title: text("noNewPicture", spanText(age)), detail: last };
        }
        const pictureAge = this.#pictureAge(hostNow);
        if (pictureAge === null || pictureAge >= FRESH_SECONDS) {
            // The camera is well, the page has only not been looking: scrolled away, hidden, or just opened.
            return { state: "stalled", word: text("connected"), title: text("waitingForNext"), detail: "" };
        }
        return { state: "live", word: text("live"), title: "", detail: "" };
    }

    // What a phone that is a browser reports of itself; null for any other, and for none.
    get browserPhone() {
        return this.info.phone ?? null;
    }

    // True while the tile is to say how a phone is connected.
    get isFree() {
        return !this.hadPhone;
    }

    get path() {
        return encodeURIComponent(this.name);
    }
}
