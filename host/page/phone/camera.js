// The camera of this phone: opened as asked, and again whenever its pictures stop coming.

const FROZEN_MS = 4000; // without a new frame in a page that is in front
const REOPEN_MS = [500, 1000, 2000, 4000]; // waits between attempts; the last one goes on
const SETTLE_MS = 1000; // for a track that was asked to change its size

// Why there is no camera, as a key of what the page says about it.
export class CameraError extends Error {
    constructor(reason) {
        super(reason);
        this.reason = reason;
    }
}

function reasonOf(error) {
    switch (error.name) {
    case "NotAllowedError":
    case "SecurityError":
        return "noPermission";
    case "NotFoundError":
    case "OverconstrainedError":
        return "noDevice";
    default: // NotReadableError, AbortError
        return "cameraBusy";
    }
}

// A count that grows with the frames that a video shows, by which a frozen camera is told from one that delivers.
function frameCounter(video) {
    if (video.requestVideoFrameCallback === undefined) {
        return () => video.getVideoPlaybackQuality().totalVideoFrames;
    }
    let count = 0;
    const next = () => {
        count += 1;
        video.requestVideoFrameCallback(next);
    };
    video.requestVideoFrameCallback(next);
    return () => count;
}

// What keeps this page from any camera whatever the person allows; null for nothing.
export function obstacle() {
    if (!window.isSecureContext) {
        return "notSecure";
    }
    if (navigator.mediaDevices?.getUserMedia === undefined) {
        return "insideApp";
    }
    if (window.OffscreenCanvas === undefined || AbortSignal.timeout === undefined) {
        return "oldBrowser";
    }
    return null;
}

export class PhoneCamera {
    facing = "environment"; // what the open camera is, or was asked to be
    several = false; // whether there is another one to turn to
    #video;
    #handlers;
    #wanted = null; // {facing, size}; null while closed
    #track = null;
    #torchWanted = false;
    #device = null; // chosen by its id, where the browser does not tell which way cameras look
    #attempt = 0; // counts openings, so that one that was overtaken is noticed
    #failures = 0;
    #timer = 0;
    #frames;
    #frameAt = 0;
    #frameCount = 0;

    // handlers: onChange() when the camera is open, muted, turned, or of another size
    constructor(video, handlers) {
        this.#video = video;
        this.#handlers = handlers;
        this.#frames = frameCounter(video);
        video.addEventListener("resize", () => handlers.onChange());
    }

    get isOpen() {
        return this.#track !== null;
    }

    // True while the phone keeps the pictures to itself: during a call, or while another app has the camera.
    get isMuted() {
        return this.#track !== null && this.#track.muted;
    }

    get isWanted() {
        return this.#wanted !== null;
    }

    get width() {
        return this.#video.videoWidth;
    }

    get height() {
        return this.#video.videoHeight;
    }

    // True or false; null where there is none.
    get torch() {
        return this.#hasTorch ? this.#torchOn : null;
    }

    // Throws CameraError.
    async open(facing, size) {
        this.#wanted = { facing, size };
        this.#failures = 0;
        await this.#open();
    }

    close() {
        this.#wanted = null;
        this.#torchWanted = false;
        this.#release();
    }

    async turn() {
        if (!this.several) {
            return;
        }
        const { size } = this.#wanted;
        const before = this.#track?.getSettings().deviceId;
        const facing = this.facing === "user" ? "environment" : "user";
        this.#device = null;
        await this.open(facing, size);
        if (this.#track?.getSettings().deviceId === before && before !== undefined) {
            // A browser that does not know which way its cameras look: the next one, then.
            this.#device = await this.#deviceAfter(before);
            await this.open(facing, size);
        }
    }

    async resize(size) {
        this.#wanted = { ...this.#wanted, size };
        const track = this.#track;
        if (track === null) {
            return;
        }
        const [width, height] = size;
        try {
            await track.applyConstraints({ width: { ideal: width }, height: { ideal: height } });
        } catch {
            // Opened anew below if it is too small; too large a picture is scaled.
        }
        // Some browsers say yes and change nothing.
        const enough = () => Math.max(this.width, this.height) >= width;
        const until = performance.now() + SETTLE_MS;
        while (!enough() && performance.now() < until) {
            await new Promise((done) => setTimeout(done, 100));
        }
        if (!enough() && this.#track === track && this.#mayBe(track, width)) {
            await this.#open();
        }
    }

    async setTorch(on) {
        this.#torchWanted = on;
        await this.#applyTorch();
        this.#handlers.onChange();
    }

    // To be called once a second while the page is in front.
    look(now) {
        const count = this.#frames();
        if (count !== this.#frameCount || this.#track === null || this.isMuted) {
            this.#frameCount = count;
            this.#frameAt = now;
        } else if (now - this.#frameAt > FROZEN_MS) {
            this.#reopen();
        }
    }

    // The page was away: silence in that time says nothing.
    returned() {
        this.#frameAt = performance.now();
        if (this.#wanted !== null && this.#track?.readyState !== "live") {
            this.#reopen();
        }
    }

    get #hasTorch() {
        // Some browsers take a torch without a word and have none: only what they say they can counts.
        const torch = this.#track?.getCapabilities?.().torch;
        return torch === true || (Array.isArray(torch) && torch.includes(true));
    }

    get #torchOn() {
        return this.#track.getSettings().torch ?? this.#torchWanted;
    }

    #mayBe(track, width) {
        return (track.getCapabilities?.().width?.max ?? Infinity) >= width;
    }

    async #deviceAfter(id) {
        const cameras = (await navigator.mediaDevices.enumerateDevices()).filter(({ kind }) => kind === "videoinput");
        const at = cameras.findIndex(({ deviceId }) => deviceId === id);
        return cameras[(at + 1) % cameras.length]?.deviceId ?? null;
    }

    #constraints() {
        const { facing, size } = this.#wanted;
        return {
            audio: false,
            video: {
                width: { ideal: size[0] }, height: { ideal: size[1] },
                ...(this.#device === null ? { facingMode: { ideal: facing } } : { deviceId: { exact: this.#device } }),
            },
        };
    }

    async #open() {
        this.#release(); // a phone opens one camera at a time
        this.#attempt += 1;
        const attempt = this.#attempt;
        let stream;
        try {
            stream = await navigator.mediaDevices.getUserMedia(this.#constraints());
        } catch (error) {
            throw new CameraError(reasonOf(error));
        }
        if (attempt !== this.#attempt || this.#wanted === null) {
            stream.getTracks().forEach((track) => track.stop());
            return;
        }
        this.#take(stream);
        await this.#video.play().catch(() => {}); // the element plays by itself where this is refused
        await this.#applyTorch();
        const cameras = await navigator.mediaDevices.enumerateDevices().catch(() => []);
        this.several = cameras.filter(({ kind }) => kind === "videoinput").length > 1;
        this.#handlers.onChange();
    }

    #take(stream) {
        const [track] = stream.getVideoTracks();
        this.#track = track;
        this.#failures = 0;
        this.#frameAt = performance.now();
        this.facing = this.#knownFacing(track) ?? this.#wanted.facing;
        track.onended = () => this.#track === track && this.#reopen();
        track.onmute = track.onunmute = () => this.#track === track && this.#handlers.onChange();
        this.#video.srcObject = stream;
    }

    #knownFacing(track) {
        const { facingMode } = track.getSettings();
        return facingMode === "user" || facingMode === "environment" ? facingMode : null;
    }

    #release() {
        clearTimeout(this.#timer);
        const track = this.#track;
        this.#track = null;
        if (track !== null) {
            track.onended = track.onmute = track.onunmute = null;
            track.stop();
        }
        this.#video.srcObject = null;
    }

    // By itself, again and again: the phone has taken the camera away, and may give it back.
    #reopen() {
        this.#release();
        this.#handlers.onChange();
        const wait = REOPEN_MS[Math.min(this.#failures, REOPEN_MS.length - 1)];
        this.#failures += 1;
        this.#timer = setTimeout(async () => {
            try {
                await this.#open();
            } catch {
                this.#device = null; // that camera may be gone
                if (this.#wanted !== null && this.#track === null) {
                    this.#reopen();
                }
            }
        }, wait);
    }

    async #applyTorch() {
        if (this.#hasTorch && this.#torchOn !== this.#torchWanted) {
            await this.#track.applyConstraints({ advanced: [{ torch: this.#torchWanted }] }).catch(() => {});
        }
    }
}
