// The connection of this phone to the host, which comes back by itself after anything.
//
// beat() is to be called once a second by a clock that also runs while the page is hidden.

import { GONE, PostTransport, SocketTransport } from "./transports.js";

const REPLACED = 4001;
const OPEN_MS = 3000; // for a socket; then pictures are posted
const PROBE_MS = 4000;
const PING_MS = 5000;
const SILENCE_MS = 12000; // after which the connection is dead, whatever the socket says
const WAKE_MS = 2500; // the same after a moment at which connections die
const FIRST_RETRY_MS = 250;
const MOST_RETRY_MS = 2000;
const ANSWER_TIMES = 12; // pings, whose quickest answer tells what the line itself takes

export class Link {
    // What the app shows: "off", "connecting", "away" (trying again), "open" (no pictures wanted yet), "ready".
    phase = "off";
    watched = true;
    #handlers;
    #transport = null;
    #opened = false;
    #state = null; // the page's last word
    #number = 0;
    #underWay = new Map(); // number of a picture: when it was sent
    #answerTimes = [];
    #heard = 0;
    #pinged = 0;
    #deadline = Infinity; // for the next word of the host
    #failures = 0;
    #tryingSince = null; // sockets, on a host that answers
    #timer = 0;

    // handlers: onPhase(), onAcknowledged(delay, answerTime), onControl(message), onReplaced(), onGone()
    constructor(handlers) {
        this.#handlers = handlers;
    }

    start(state) {
        this.#state = state;
        this.#failures = 0;
        this.#openSocket();
    }

    // lastWord: the state that the host hears before the end.
    stop(lastWord) {
        this.#drop(this.#opened ? lastWord : null);
        this.#tryingSince = null;
        this.#enter("off");
    }

    tell(state) {
        this.#state = state;
        if (this.#opened) {
            this.#transport.send(state);
        }
    }

    get mayRunMore() {
        return this.phase === "ready" && this.#underWay.size < this.#transport.most;
    }

    sendPicture(jpeg) {
        if (!this.mayRunMore) {
            return;
        }
        this.#number += 1;
        this.#underWay.set(this.#number, performance.now());
        this.#transport.sendPicture(this.#number, jpeg);
    }

    beat() {
        const now = performance.now();
        if (!this.#opened) {
            return;
        }
        if (now - this.#heard > SILENCE_MS || now > this.#deadline) {
            this.#lose(1006);
        } else if (now - this.#pinged >= (this.phase === "ready" ? PING_MS : 1000)) {
            this.#ping(now);
        }
    }

    // The page is in front again, or the network is back: what seems to be a connection may be none.
    wake() {
        if (this.phase === "away") {
            clearTimeout(this.#timer);
            this.#probe();
        } else if (this.#opened) {
            const now = performance.now();
            this.#ping(now);
            this.#deadline = now + WAKE_MS;
        }
    }

    #enter(phase) {
        if (this.phase !== phase) {
            this.phase = phase;
            this.#handlers.onPhase();
        }
    }

    #ping(now) {
        this.#pinged = now;
        this.#transport.send({ type: "ping", at: Math.round(now) });
    }

    #openSocket() {
        this.#tryingSince ??= performance.now();
        this.#use(SocketTransport);
        this.#timer = setTimeout(() => this.#lose(1006), OPEN_MS);
    }

    #use(Transport) {
        this.#drop();
        this.#enter("connecting");
        this.#transport = new Transport({
            onOpen: () => this.#open(),
            onMessage: (message) => this.#hear(message),
            onClose: (code) => this.#lose(code),
        });
    }

    #drop(lastWord = null) {
        clearTimeout(this.#timer);
        this.#transport?.close(lastWord);
        this.#transport = null;
        this.#opened = false;
        this.#underWay.clear();
        this.#answerTimes = [];
        this.#deadline = Infinity;
    }

    #open() {
        clearTimeout(this.#timer);
        this.#opened = true;
        this.#tryingSince = null;
        this.#heard = performance.now();
        this.#enter("open");
        this.#transport.send(this.#state);
        this.#ping(this.#heard);
    }

    #lose(code) {
        this.#drop();
        if (code === REPLACED || code === GONE) {
            this.#tryingSince = null;
            this.#enter("off");
            code === GONE ? this.#handlers.onGone() : this.#handlers.onReplaced();
            return;
        }
        this.#enter("away");
        this.#again();
    }

    // With jitter, so that phones that lost one host do not all come back in the same moment.
    #again() {
        const wait = Math.min(FIRST_RETRY_MS * 2 ** this.#failures, MOST_RETRY_MS);
        this.#failures = Math.min(this.#failures + 1, 10);
        this.#timer = setTimeout(() => this.#probe(), wait * (0.5 + Math.random() / 2));
    }

    // A plain request first: it tells a host that is away from one that no socket comes through to and from one that
    // no longer knows this phone, and browsers slow down sockets that were refused.
    async #probe() {
        this.#timer = 0;
        let status = 0;
        try {
            const answer = await fetch(`${location.origin}/phone/state`, {
                cache: "no-store", signal: AbortSignal.timeout(PROBE_MS),
            });
            status = answer.status;
        } catch {
            // No answer: the host is down or out of reach.
        }
        if (this.phase !== "away" || this.#timer !== 0) {
            return; // stopped meanwhile, or another probe was quicker
        }
        if (status === 200) {
            this.#failures = Math.min(this.#failures, 3);
            const tried = this.#tryingSince === null ? 0 : performance.now() - this.#tryingSince;
            tried < OPEN_MS ? this.#openSocket() : this.#use(PostTransport);
        } else if (status === 401) {
            this.#lose(GONE);
        } else {
            this.#tryingSince = null;
            this.#again();
        }
    }

    #hear(words) {
        const now = performance.now();
        this.#heard = now;
        this.#deadline = Infinity;
        const message = JSON.parse(words);
        switch (message.type) {
        case "ready":
            this.#failures = 0;
            this.#enter("ready");
            break;
        case "ack": {
            const sent = this.#underWay.get(message.number);
            this.#underWay.delete(message.number);
            if (sent !== undefined) {
                this.#handlers.onAcknowledged(now - sent, Math.min(...this.#answerTimes, now - sent));
            }
            break;
        }
        case "watched":
            this.watched = message.watched;
            this.#handlers.onPhase();
            break;
        case "pong":
            this.#answerTimes.push(now - message.at);
            this.#answerTimes.splice(0, this.#answerTimes.length - ANSWER_TIMES);
            break;
        case "control":
            this.#handlers.onControl(message);
            break;
        default: // of a newer host
        }
    }
}
