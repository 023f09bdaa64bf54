// The two ways of messages and pictures to the host: a WebSocket, and where none gets through, a POST for each picture.
//
// Both take {onOpen, onMessage, onClose} and call none of them after close(). onClose gets a close code; 4003 also
// stands for a host that no longer knows this phone.

const POST_TIMEOUT_MS = 8000;
export const GONE = 4003;

const socketAddress = () => `${location.protocol === "https:" ? "wss:" : "ws:"}//${location.host}/phone/socket`;

export class SocketTransport {
    most = 2; // pictures under way
    #socket;

    constructor({ onOpen, onMessage, onClose }) {
        const socket = new WebSocket(socketAddress());
        socket.binaryType = "arraybuffer";
        socket.onopen = () => onOpen();
        socket.onmessage = ({ data }) => onMessage(data);
        socket.onclose = ({ code }) => onClose(code);
        this.#socket = socket;
    }

    send(message) {
        if (this.#socket.readyState === WebSocket.OPEN) {
            this.#socket.send(JSON.stringify(message));
        }
    }

    sendPicture(number, jpeg) {
        const message = new Uint8Array(4 + jpeg.byteLength);
        new DataView(message.buffer).setUint32(0, number);
        message.set(new Uint8Array(jpeg), 4);
        this.#socket.send(message);
    }

    // Does not wait for the other side, which may be gone for good. lastWord: a message to send before, or null.
    close(lastWord = null) {
        const socket = this.#socket;
        socket.onopen = socket.onmessage = socket.onclose = null;
        if (lastWord !== null) {
            this.send(lastWord);
        }
        socket.close(1000);
    }
}

export class PostTransport {
    most = 1;
    #handlers;
    #state = null; // not told yet
    #picture = null; // {number, jpeg}
    #pollWanted = false;
    #busy = false;
    #end = new AbortController();

    constructor(handlers) {
        this.#handlers = handlers;
        queueMicrotask(() => this.#end.signal.aborted || handlers.onOpen());
    }

    // A ping becomes a request of its own, whose answer time is the line's.
    send(message) {
        if (message.type === "state") {
            this.#state = message;
        }
        this.#pollWanted = true;
        this.#next();
    }

    sendPicture(number, jpeg) {
        this.#picture = { number, jpeg };
        this.#next();
    }

    close(lastWord = null) {
        this.#end.abort();
        if (lastWord !== null) {
            fetch(this.#address(0, lastWord), { method: "POST", keepalive: true }).catch(() => {});
        }
    }

    #address(number, state) {
        const query = new URLSearchParams({ number });
        if (state !== null) {
            query.set("state", JSON.stringify(state));
        }
        return `${location.origin}/phone/picture?${query}`;
    }

    async #next() {
        const end = this.#end.signal;
        if (this.#busy || end.aborted || (this.#picture === null && !this.#pollWanted)) {
            return;
        }
        this.#busy = true;
        const picture = this.#pollWanted ? null : this.#picture;
        if (picture === null) {
            this.#pollWanted = false;
        } else {
            this.#picture = null;
        }
        const state = this.#state;
        const asked = performance.now();
        const { messages, code } = await this.#ask(picture, state);
        this.#busy = false;
        if (end.aborted) {
            return;
        }
        if (messages === null) {
            this.#handlers.onClose(code);
            return;
        }
        if (this.#state === state) {
            this.#state = null;
        }
        if (picture === null) {
            messages.push({ type: "pong", at: asked });
        }
        this.#hear(messages);
        this.#next();
    }

    // The messages of the answer, or null and the code that tells why there are none.
    async #ask(picture, state) {
        try {
            const answer = await fetch(this.#address(picture?.number ?? 0, state), {
                method: "POST", body: picture?.jpeg ?? null, cache: "no-store",
                headers: picture === null ? {} : { "Content-Type": "image/jpeg" },
                signal: AbortSignal.any?.([this.#end.signal, AbortSignal.timeout(POST_TIMEOUT_MS)]) ?? this.#end.signal,
            });
            if (answer.ok) {
                return { messages: await answer.json(), code: 0 };
            }
            return { messages: null, code: answer.status === 401 ? GONE : 1006 };
        } catch {
            return { messages: null, code: 1006 }; // nothing came back in time
        }
    }

    #hear(messages) {
        for (const message of messages) {
            if (this.#end.signal.aborted) {
                return;
            }
            if (message.type === "closed") {
                this.#handlers.onClose(message.code);
            } else {
                this.#handlers.onMessage(JSON.stringify(message));
            }
        }
    }
}
