// Looking back: which cameras have recordings, and the recordings of one of them.
//
// /recordings has the list, /recordings/NAME a camera; there `t` is the moment to show (Unix milliseconds), `back` that many
// seconds ago, from where it plays, and `camera` tells several cameras of that name apart.

import { Player } from "./player.js";
import { Saving } from "./saving.js";
import { Timeline, nextDay, startOfDay } from "./timeline.js";
import { FullScreen } from "../shared/fullscreen.js";
import { setHidden, setText } from "../shared/view.js";
import { text, translatePage } from "../shared/words.js";

const REFRESH_MS = 5000; // of what is being recorded
const RETRY_MS = 2000;
const LOAD_DELAY_MS = 120; // gathers the steps of a wheel
const ADDRESS_DELAY_MS = 400; // browsers let a page change its address some times a second
const MARKS_MS = 600; // that playing moves the line by, at most

const page = {};
for (const id of [
    "all", "announcement", "title", "message", "message-title", "message-detail", "list", "lookback", "stage", "picture", "notice", "notice-title", "full",
    "moment", "before", "play", "after", "speed", "as-file", "keep", "day-before", "day", "day-after", "now", "wider", "closer",
    "timeline", "strip", "saving", "from-here", "from", "to-here", "to", "form", "faster-label", "faster", "save", "stop", "missing", "saved", "progress",
]) {
    page[id] = document.getElementById(id);
}
translatePage();

const language = document.documentElement.lang;
const dateAndTime = new Intl.DateTimeFormat(language, {
    weekday: "short", year: "numeric", month: "short", day: "numeric", hour: "2-digit", minute: "2-digit", second: "2-digit", timeZoneName: "short",
});
const justTime = new Intl.DateTimeFormat(language, { month: "short", day: "numeric", hour: "2-digit", minute: "2-digit", second: "2-digit" });

async function ask(path) {
    const answer = await fetch(new URL(path, location.origin), { cache: "no-store" });
    if (!answer.ok) {
        throw Object.assign(new Error(`${path} answers ${answer.status}`), { status: answer.status });
    }
    return answer.json();
}

// Null where there is nothing at that address, or nothing for who asks.
async function askUntilAnswered(path) {
    for (;;) {
        try {
            return await ask(path);
        } catch (failure) {
            if (failure.status === 404) {
                return null;
            }
            if (failure.status === 401) {
                say(text("asksForSignIn"), text("reloadAndSignIn"));
                return new Promise(() => {}); // for good
            }
            say(text("noAnswerTitle"), text("tryingAgain"));
            await new Promise((resolve) => setTimeout(resolve, RETRY_MS));
        }
    }
}

function say(title, detail = "") {
    setText(page["message-title"], title);
    setText(page["message-detail"], detail);
    page.message.hidden = title === "";
}

function nameInAddress() {
    try {
        return decodeURIComponent(location.pathname.slice("/recordings/".length));
    } catch {
        return "";
    }
}

// --- The list ------------------------------------------------------------------------------------------------------

async function showList() {
    const cameras = (await askUntilAnswered("/api/v1/recordings"))?.cameras ?? [];
    say(...(cameras.length === 0 ? [text("nothingRecorded"), text("howToRecord")] : [""]));
    page.list.replaceChildren(...cameras.map((camera) => {
        const entry = document.createElement("li");
        const link = document.createElement("a");
        link.href = `/recordings/${encodeURIComponent(camera.name)}${camera.removed ? `?camera=${camera.id}` : ""}`;
        const name = document.createElement("span");
        name.className = "name";
        name.textContent = camera.removed ? text("removedCamera", camera.name) : camera.name;
        const until = document.createElement("span");
        until.className = "until";
        until.textContent = text("fromTo", justTime.format(camera.from), justTime.format(camera.to));
        link.append(name, until);
        entry.append(link);
        return entry;
    }));
    page.list.hidden = cameras.length === 0;
}

// --- One camera ----------------------------------------------------------------------------------------------------

function showCamera(name) {
    const asked = new URLSearchParams(location.search);
    const number = asked.get("camera") ?? "";
    const which = /^\d{1,18}$/.test(number) ? `&camera=${number}` : "";
    const base = `/recordings/${encodeURIComponent(name)}`;
    const recordings = `/api/v1/recordings/${encodeURIComponent(name)}`;
    const context = page.picture.getContext("2d", { alpha: false });
    document.title = `${name} – Morrowstream`;
    setText(page.title, name);
    page.all.hidden = false;
    page.picture.setAttribute("aria-label", text("pictureFrom", name));

    let silent = false; // the server gave no answer
    // Why there is no picture of a moment, as far as is known.
    function nameAbsence(time) {
        const gap = timeline.data.away.find(({ from, to }) => time >= from && time <= to);
        setText(page["notice-title"], silent ? text("noAnswerTitle") : gap ? text("hostAway", gap.host) : text("notRecorded"));
    }

    const player = new Player(base, which, {
        shown({ time, bitmap, away }) {
            silent = bitmap === undefined;
            nameAbsence(time);
            setHidden(page.notice, !away);
            setHidden(page.picture, !bitmap);
            if (bitmap) {
                page.picture.width = bitmap.width;
                page.picture.height = bitmap.height;
                context.drawImage(bitmap, 0, 0);
                bitmap.close();
                page.picture.dataset.time = time;
            }
            showMoment(time);
        },
        changed() {
            page.play.setAttribute("aria-pressed", `${player.playing}`);
            page.play.setAttribute("aria-label", text(player.playing ? "pause" : "play"));
            setText(page.play, player.playing ? "❚❚" : "▶");
        },
    });
    const timeline = new Timeline(page.timeline, page.strip, {
        sought: (time) => seek(time),
        moved: () => loadSoon(),
        textOf: (time) => dateAndTime.format(time),
    });
    const saving = new Saving(page, base, which, {
        now: () => player.time,
        changed() {
            timeline.chosen = { from: saving.from, to: saving.to };
            timeline.draw();
            showKept();
        },
        textOf: (time) => justTime.format(time),
    });
    new FullScreen(page.full, page.stage, document.body);

    let lineMoved = 0;
    let addressTimer = 0;
    function showMoment(time) {
        setText(page.moment, dateAndTime.format(time));
        page.moment.dateTime = new Date(time).toISOString();
        page["as-file"].href = player.addressOf(time);
        page["as-file"].download = `${name} ${new Date(time).toISOString().replaceAll(":", "-")}.jpg`;
        timeline.time = time;
        showKept();
        if (!timeline.held && (time < timeline.begin || time > timeline.end)) {
            timeline.follow();
        }
        const now = performance.now();
        if (!player.playing || now - lineMoved > Math.min(MARKS_MS, timeline.span / 1000)) {
            lineMoved = now;
            timeline.draw();
        }
        if (document.activeElement !== page.day) {
            page.day.value = dayText(time);
        }
        clearTimeout(addressTimer);
        addressTimer = setTimeout(() => history.replaceState(null, "", `?t=${Math.round(time)}${which}`), ADDRESS_DELAY_MS);
    }

    // The part that is marked, or the recording that is looked at.
    function partToKeep() {
        const { from, to } = saving;
        const time = Math.round(player.time ?? timeline.time);
        return from !== null && to !== null ? [from, to] : [time, time];
    }

    function isKept() {
        const [from, to] = partToKeep();
        return timeline.data.kept.some(([begin, end]) => begin <= from && end >= to);
    }

    function showKept() {
        setText(page.keep, text(isKept() ? "keptKey" : "keep"));
        page.keep.setAttribute("aria-pressed", `${isKept()}`);
    }

    async function keep() {
        const [from, to] = partToKeep();
        const method = isKept() ? "DELETE" : "PUT";
        page.keep.disabled = true;
        try {
            const answer = await fetch(new URL(`${recordings}/kept?from=${from}&to=${to}${which}`, location.origin), { method });
            setText(page.announcement, text(answer.ok ? (method === "PUT" ? "keptNow" : "letGo") : answer.status === 404 ? "notRecorded" : "keepFailed"));
            say(answer.ok ? "" : page.announcement.textContent);
        } catch {
            say(text("noAnswerTitle"));
        }
        page.keep.disabled = false;
        await load();
    }

    function seek(time) {
        const held = Math.min(Math.max(time, 0), Math.max(last, timeline.now));
        showMoment(held);
        player.seek(held);
    }

    // Of the zone of the browser, as a field for a date has it.
    function dayText(time) {
        const day = new Date(time);
        const two = (number) => `${number}`.padStart(2, "0");
        return `${`${day.getFullYear()}`.padStart(4, "0")}-${two(day.getMonth() + 1)}-${two(day.getDate())}`;
    }

    // --- What is recorded ---

    let first = 0;
    let last = 0;
    let loading = 0;
    let loadTimer = 0;
    function loadSoon() {
        clearTimeout(loadTimer);
        loadTimer = setTimeout(load, LOAD_DELAY_MS);
    }

    async function load() {
        clearTimeout(loadTimer);
        loading += 1;
        const round = loading;
        const { begin, end, span } = timeline;
        try {
            const told = await ask(`${recordings}?from=${Math.max(0, Math.round(begin - span))}&to=${Math.max(1, Math.round(end + span))}&gap=${Math.round(span / 2000)}${which}`);
            if (round === loading) {
                ({ first, last } = told);
                timeline.now = told.now;
                const others = JSON.stringify(told.away) !== JSON.stringify(timeline.data.away);
                timeline.data = told;
                timeline.draw();
                if (others) {
                    saving.lookForAway();
                }
                nameAbsence(timeline.time);
                page.keep.hidden = !told.mayKeep;
                showKept();
            }
        } catch {
            // What was known stays; it is asked again.
        }
        if (round === loading) {
            loadTimer = setTimeout(load, REFRESH_MS);
        }
    }

    function showDay(time) {
        timeline.show(startOfDay(time), nextDay(time));
    }

    // The first picture of the day, or where it would be.
    async function goToDay(time) {
        const [from, to] = [startOfDay(time), nextDay(time)];
        player.pause();
        timeline.show(from, to);
        await load();
        const there = timeline.data.spans.find(([begin, end]) => end >= from && begin < to);
        seek(there === undefined ? from : Math.max(there[0], from));
    }

    // --- What is pressed ---

    const go = {
        play: () => (player.playing ? player.pause() : player.play()),
        before: () => player.step(-1),
        after: () => player.step(1),
        "day-before": () => goToDay(nextDay(player.time, -1)),
        "day-after": () => goToDay(nextDay(player.time)),
        now: () => seek(Math.max(last, 0)),
        wider: () => timeline.zoom(0.5),
        closer: () => timeline.zoom(2),
        keep,
    };
    for (const [key, pressed] of Object.entries(go)) {
        page[key].addEventListener("click", pressed);
    }
    page.speed.addEventListener("change", () => (player.speed = Number(page.speed.value)));
    page.day.addEventListener("change", () => {
        const [year, month, day] = page.day.value.split("-").map(Number);
        if (day > 0) {
            goToDay(new Date(year, month - 1, day).getTime());
        }
    });

    const keys = {
        " ": go.play, k: go.play, ",": go.before, ".": go.after, "+": go.closer, "=": go.closer, "-": go.wider,
        ArrowLeft: (event) => seek(player.time - (event.shiftKey ? 60000 : 5000)),
        ArrowRight: (event) => seek(player.time + (event.shiftKey ? 60000 : 5000)),
        PageUp: go["day-before"], PageDown: go["day-after"], Home: () => seek(first), End: go.now,
        "[": () => saving.mark("from"), "]": () => saving.mark("to"),
    };
    document.addEventListener("keydown", (event) => {
        const own = event.target.closest("input, select, textarea") !== null || (event.key === " " && event.target.closest("button, a") !== null);
        if (!own && !event.altKey && !event.ctrlKey && !event.metaKey && Object.hasOwn(keys, event.key)) {
            event.preventDefault();
            keys[event.key](event);
        }
    });

    async function begin() {
        const told = await askUntilAnswered(`${recordings}?from=0&to=0${which}`);
        if (told === null) {
            say(text("nothingRecorded"), text("howToRecord"));
            return;
        }
        ({ first, last } = told);
        timeline.now = told.now;
        say("");
        page.lookback.hidden = false;
        const back = Number(asked.get("back") ?? NaN);
        const wanted = Number(asked.get("t") ?? NaN);
        const time = back > 0 ? Math.max(told.now - back * 1000, first) : wanted > 0 ? wanted : last;
        player.time = time;
        showDay(time);
        if (back > 0) {
            timeline.zoom(24, time);
        }
        seek(time);
        if (back > 0) {
            player.play();
        }
        await load();
    }
    begin();
}

say(text("connectingToHost"));
const name = nameInAddress();
if (name === "") {
    showList();
} else {
    showCamera(name);
}
