// The picture of a moment: one request each, since each picture stands for itself.
//
// While somebody drags, one request is on its way and the newest wish waits behind it, so the picture follows the finger as
// closely as the line allows and nothing piles up.

const LEAST_SHOWN_MS = 33; // no picture is shown for less
const LATE_MS = 250; // behind the clock of playing, from which on pictures are left out
const ANY_MS = 1e14;
const GAP_MS = 3000; // between two pictures: nothing was recorded, and playing goes on behind it

export class Player {
    #base; // address of the camera's recordings
    #query; // that tells which of several cameras of that name
    #shown; // told what is on the screen now
    #wanted = null; // what to show next: {time, step}
    #busy = false;
    #round = 0; // of playing: another number each time
    #file = 0; // of the picture that is shown, as the server numbers them
    time = null; // of what is looked at: where the picture is from, or where there is none
    speed = 1;

    // shown({time, bitmap, away}): of the moment `time`; bitmap is null where nothing was ever recorded, and undefined when the
    // server gave no answer. `away`: nothing was recorded at that moment, and the picture is the nearest one. The receiver
    // closes the bitmap.
    // changed(): playing has begun or ended.
    constructor(base, query, { shown, changed }) {
        this.#base = base;
        this.#query = query;
        this.#shown = shown;
        this.changed = changed;
        this.playing = false;
    }

    // Of the nearest picture to a moment, or of the one behind it or before it.
    addressOf(time, step = 0) {
        const which = step === 0 ? `&within=${ANY_MS}` : `&step=${step}${this.#file > 0 ? `&file=${this.#file}` : ""}`;
        return `${this.#base}/at.jpg?t=${Math.round(time)}${which}${this.#query}`;
    }

    // Shows what was seen at that moment.
    seek(time) {
        this.time = time;
        this.#round += this.playing ? 1 : 0;
        this.#wanted = { time, step: 0 };
        this.#pump();
    }

    // The next picture (1), or the one before (-1).
    step(direction) {
        this.pause();
        this.#wanted = { time: this.time, step: direction };
        this.#pump();
    }

    play() {
        if (!this.playing) {
            this.playing = true;
            this.changed();
            this.#run();
        }
    }

    pause() {
        if (this.playing) {
            this.playing = false;
            this.#round += 1;
            this.changed();
        }
    }

    async #pump() {
        if (this.#busy) {
            return;
        }
        this.#busy = true;
        while (this.#wanted !== null) {
            const { time, step } = this.#wanted;
            this.#wanted = null;
            const picture = await this.#fetch(time, step);
            if (picture) {
                const away = step === 0 && (picture.time > time || time - picture.time > GAP_MS);
                const at = away ? time : picture.time;
                this.time = this.#wanted === null ? at : this.time;
                this.#file = picture.file;
                this.#shown({ time: at, bitmap: picture.bitmap, away });
            } else if (step === 0) {
                this.#shown({ time, bitmap: picture, away: true });
            }
        }
        this.#busy = false;
        if (this.playing) {
            this.#run();
        }
    }

    // Null where there is no such picture, undefined without an answer.
    async #fetch(time, step) {
        try {
            const answer = await fetch(this.addressOf(time, step), { cache: "no-store" });
            if (answer.status === 404) {
                return null;
            }
            if (!answer.ok) {
                return undefined;
            }
            const [taken, file] = ["Time", "File"].map((name) => Number(answer.headers.get(`X-Picture-${name}`)));
            return { time: taken, file, bitmap: await createImageBitmap(await answer.blob()) };
        } catch {
            return undefined; // no server, or no picture that this browser reads
        }
    }

    // One picture is fetched while the one before is looked at.
    async #run() {
        if (this.#busy) {
            return; // it begins behind what is being sought
        }
        this.#round += 1;
        const round = this.#round;
        const goesOn = () => this.playing && this.#round === round;
        let begun = performance.now();
        let from = this.time;
        let at = this.time;
        while (goesOn()) {
            const onClock = from + (performance.now() - begun) * this.speed;
            const late = onClock - at > LATE_MS * this.speed;
            const asked = Math.max(at + LEAST_SHOWN_MS * this.speed - 1, late ? onClock : 0);
            const speed = this.speed;
            const picture = await this.#fetch(asked, 1);
            if (!goesOn()) {
                picture?.bitmap.close();
                return;
            }
            if (!picture) {
                this.pause(); // the end of what there is
                return;
            }
            if (picture.time - asked > GAP_MS || speed !== this.speed) {
                begun = performance.now();
                from = picture.time;
            }
            const wait = (picture.time - from) / this.speed - (performance.now() - begun);
            if (wait > 0) {
                await new Promise((resolve) => setTimeout(resolve, wait));
            }
            if (!goesOn()) {
                picture.bitmap.close();
                return;
            }
            at = picture.time;
            this.time = at;
            this.#file = picture.file;
            this.#shown({ ...picture, away: false });
        }
    }
}
