// The page's one connection to the host: a WebSocket at /tiles that carries every camera's state and pictures.
//
// The stream heals itself. The host sends a state message at least once a second, so silence means that the stream is
// dead, whatever the socket believes. Before a new socket is opened, a plain request asks whether the host answers at
// all: browsers slow down WebSockets to a host that refused some (Chromium by up to five seconds a try, after a few
// dozen failures), and a host that was down for a minute must still be back on the screen within three seconds.

const SILENCE_MS = 2500; // no state message for this long: the stream is dead
const CHECK_MS = 250;
const RETRY_MS = 500; // between two questions to a host that does not answer ...
const RETRY_LATER_MS = 1000; // ... and once it has been away for RETRY_OFTEN_FOR_MS
const RETRY_OFTEN_FOR_MS = 15000;
const PROBE_TIMEOUT_MS = 1500;

// A picture: u8 version, u8 and u16 reserved, u32 camera id, u32 sequence number, u64 arrival in Unix milliseconds
// (all little-endian), then the JPEG bytes.
const HEADER_BYTES = 20;
const HEADER_VERSION = 1;

function parsePicture(buffer) {
    if (buffer.byteLength <= HEADER_BYTES) {
        return null;
    }
    const view = new DataView(buffer);
    if (view.getUint8(0) !== HEADER_VERSION) {
        return null;
    }
    return {
        id: view.getUint32(4, true),
        sequence: view.getUint32(8, true),
        arrived: Number(view.getBigUint64(12, true)),
        jpeg: new Blob([new Uint8Array(buffer, HEADER_BYTES)], { type: "image/jpeg" }),
    };
}

export class TileStream {
    #handlers;
    #socket = null;
    #heardState = false; // on the present socket
    #lastHeard = 0; // performance.now() of the last state message, or of the opening of the socket
    #lastCheck = performance.now();
    #lostSince = null;
    #retryTimer = 0;
    #probe = null; // AbortController of the question under way

    // handlers: onState(message), onPicture(picture), onLost(reason). A reason is "silent", "closed" or "refused":
    // the host answers, but no longer to this user. onLost comes once for each loss; onState ends it.
    constructor(handlers) {
        this.#handlers = handlers;
        setInterval(() => this.#check(), CHECK_MS);
        this.#open();
    }

    // A picture of an earlier socket is no business of the present one.
    acknowledge(picture) {
        if (picture.socket !== this.#socket) {
            return;
        }
        this.#send(`ack ${picture.id} ${picture.sequence}`);
    }

    show(ids) {
        this.#send(["show", ...ids].join(" "));
    }

    // Ask at once instead of at the next retry: the page has just come back to the front, or the network to the device.
    retryNow() {
        if (this.#socket === null && this.#probe === null) {
            this.#askHost();
        }
    }

    #send(text) {
        if (this.#socket !== null && this.#socket.readyState === WebSocket.OPEN) {
            this.#socket.send(text);
        }
    }

    #open() {
        // Built from the origin alone: an address with a user and a password in it is not accepted for a socket.
        const socket = new WebSocket(`${location.protocol === "https:" ? "wss:" : "ws:"}//${location.host}/tiles`);
        socket.binaryType = "arraybuffer";
        this.#socket = socket;
        this.#heardState = false;
        this.#lastHeard = performance.now();
        socket.onmessage = (event) => {
            if (socket === this.#socket) {
                this.#receive(event.data);
            }
        };
        socket.onclose = () => {
            if (socket === this.#socket) {
                this.#lose("closed");
            }
        };
    }

    #receive(data) {
        if (typeof data !== "string") {
            const picture = parsePicture(data);
            if (picture !== null) {
                this.#handlers.onPicture({ ...picture, socket: this.#socket });
            }
            return;
        }
        const message = JSON.parse(data);
        if (message.type !== "state") {
            return; // a newer host may have more to say
        }
        this.#heardState = true;
        this.#lastHeard = performance.now();
        this.#lostSince = null;
        this.#handlers.onState(message);
    }

    #check() {
        const now = performance.now();
        // A page that was itself asleep (a closed lid, a throttled tab) has not read its messages yet: let it.
        const slept = now - this.#lastCheck > SILENCE_MS / 2;
        this.#lastCheck = now;
        if (this.#socket !== null && !slept && now - this.#lastHeard > SILENCE_MS) {
            this.#lose("silent");
        }
    }

    #lose(reason) {
        const socket = this.#socket;
        this.#socket = null;
        if (socket !== null) {
            socket.close(); // late events of it are ignored: it is no longer the stream's socket
        }
        this.#tell(reason);
        if (this.#heardState) {
            this.#askHost();
        } else {
            this.#retryLater(); // a host that answers but takes no stream is not to be hammered
        }
    }

    #retryLater() {
        const away = performance.now() - this.#lostSince;
        clearTimeout(this.#retryTimer);
        this.#retryTimer = setTimeout(() => this.#askHost(), away < RETRY_OFTEN_FOR_MS ? RETRY_MS : RETRY_LATER_MS);
    }

    #tell(reason) {
        this.#lostSince ??= performance.now();
        this.#handlers.onLost(reason);
    }

    async #askHost() {
        clearTimeout(this.#retryTimer);
        const probe = new AbortController();
        this.#probe = probe;
        const deadline = setTimeout(() => probe.abort(), PROBE_TIMEOUT_MS);
        let answers = false;
        try {
            const response = await fetch(new URL("/health", location.origin), { cache: "no-store", signal: probe.signal });
            answers = response.ok;
            if (response.status === 401 || response.status === 403) {
                this.#tell("refused");
            }
        } catch {
            // No answer: the host is down or out of reach.
        }
        clearTimeout(deadline);
        this.#probe = null;
        if (answers) {
            this.#open();
        } else {
            this.#retryLater();
        }
    }
}
