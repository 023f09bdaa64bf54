// The page of events: those that the host remembers, with filters, and those that happen while it is open.

import { text, translatePage } from "../shared/words.js";

const SHOWN_AT_ONCE = 100;
const MOST_SHOWN = 2000; // older ones go, while new ones come
const RETRY_MS = 2000;
// The words of the host's interface for kinds of events, and ours.
const KINDS = {
    "camera-connected": "eventConnected", "camera-lost": "eventLost", "motion-began": "eventMotion", "motion-ended": "eventStill",
    "recording-paused": "eventPaused", "recording-resumed": "eventResumed", "recording-trouble": "eventRecordingTrouble",
    "notice-trouble": "eventNoticeTrouble", "sign-in-refused": "eventRefused", "settings-changed": "eventSettings",
    "users-changed": "eventUsers", "server-started": "eventStarted", "host-lost": "eventHostLost", "host-back": "eventHostBack",
};
const BAD = new Set(["camera-lost", "recording-paused", "recording-trouble", "notice-trouble", "sign-in-refused", "host-lost"]);
// What these are about stands in the host's own words.
const TOLD = new Set(["settings-changed", "users-changed", "recording-paused", "recording-trouble", "notice-trouble", "host-lost", "host-back"]);

const page = {};
for (const id of ["link", "kind", "camera", "from", "to", "message", "list", "older"]) {
    page[id] = document.getElementById(id);
}
let next = null; // the number that older events lie before; null: there are none
let question = 0; // of several that are under way the newest counts
let listed = new Set(); // what the newest list had
let arrived = null; // by the socket, while the newest list is under way

// --- Asking -------------------------------------------------------------------------------------------------------------

const momentOf = (field) => field.value === "" ? "" : String(new Date(field.value).getTime());
const keyOf = (event) => `${event.host ?? ""}:${event.number}`; // numbers are each host's own
const wanted = () => ({ kind: page.kind.value, camera: page.camera.value, from: momentOf(page.from), to: momentOf(page.to) });

async function ask(path) {
    // An address with a sign-in in it is no base for a request.
    const answer = await fetch(new URL(path, location.origin), { cache: "no-store" });
    if (answer.status === 401 || answer.status === 403) {
        location.reload(); // the host says what is wrong, or asks for a sign-in
    }
    if (!answer.ok) {
        throw new Error(String(answer.status));
    }
    return answer.json();
}

async function load(older) {
    const mine = ++question;
    arrived = older ? null : [];
    const query = new URLSearchParams({ ...wanted(), limit: String(SHOWN_AT_ONCE) });
    if (older) {
        query.set("before", String(next));
    }
    try {
        const found = await ask(`/api/v1/events?${query}`);
        if (mine !== question) {
            return;
        }
        const rows = found.events.map(rowOf);
        if (older) {
            page.list.append(...rows);
            rows[0]?.focus();
        } else {
            page.list.replaceChildren(...rows);
            listed = new Set(found.events.map(keyOf));
        }
        next = found.next;
        page.older.hidden = next === null;
        const late = arrived ?? [];
        arrived = null;
        take(late);
        page.message.textContent = page.list.hasChildNodes() ? "" : text("noEvents");
    } catch {
        if (mine === question) {
            page.message.textContent = text("noAnswer");
        }
    }
}

// --- Showing ------------------------------------------------------------------------------------------------------------

function part(name, className, words) {
    const element = document.createElement(name);
    element.className = className;
    element.textContent = words;
    return element;
}

function rowOf(event) {
    const row = part("li", "event", "");
    row.tabIndex = -1;
    row.dataset.number = event.number;
    if (event.host !== undefined) {
        row.dataset.host = event.host;
    }
    row.dataset.kind = event.kind;
    row.dataset.weight = BAD.has(event.kind) ? "bad" : "usual";
    const time = part("time", "", new Date(event.ms).toLocaleString(document.documentElement.lang));
    time.dateTime = event.time;
    const title = part("span", "event-title", "");
    const kind = KINDS[event.kind];
    title.append(part("span", "event-kind", kind === undefined ? event.text : text(kind)));
    for (const [className, words] of [["event-camera", event.camera], ["event-who", event.who], ["event-host", event.host ?? ""]]) {
        if (words !== "") {
            title.append(" · ", part("span", className, words));
        }
    }
    row.append(time, title);
    const { address, count } = event.details;
    const detail = [TOLD.has(event.kind) ? event.text : "", address ?? "", count === undefined ? "" : `× ${count}`]
        .filter((words) => words !== "").join(" · ");
    if (detail !== "") {
        row.append(part("span", "event-detail", detail));
    }
    return row;
}

// Whether an event that has just happened belongs to what is shown. Times are the host's; its clock and this device's
// may differ, so only the end of a period keeps new events out.
function isWanted(event) {
    const { kind, camera, to } = wanted();
    return (kind === "" || kind === event.kind) && (camera === "" || camera === event.camera) && to === "";
}

function take(events) {
    arrived?.push(...events);
    const rows = events.filter((event) => !listed.has(keyOf(event)) && isWanted(event)).map(rowOf).reverse();
    if (rows.length === 0) {
        return;
    }
    page.message.textContent = "";
    page.list.prepend(...rows);
    if (page.list.childElementCount > MOST_SHOWN && arrived === null) {
        shorten();
    }
}

function shorten() {
    if (page.list.querySelector("[data-host]") !== null) {
        load(false); // where older ones of several hosts begin is known to the host alone
        return;
    }
    while (page.list.childElementCount > MOST_SHOWN) {
        page.list.lastElementChild.remove();
    }
    next = Number(page.list.lastElementChild.dataset.number);
    page.older.hidden = false;
}

// The socket first: what happens while the list is under way comes by it, from its first message on.
function listen() {
    let begun = false;
    const socket = new WebSocket(`${location.protocol === "https:" ? "wss:" : "ws:"}//${location.host}/events`);
    socket.onopen = () => {
        page.link.dataset.link = "connected";
        page.link.textContent = text("connected");
    };
    socket.onmessage = (message) => {
        if (!begun) {
            begun = true;
            load(false);
        }
        take(JSON.parse(message.data));
    };
    socket.onclose = () => {
        page.link.dataset.link = "lost";
        page.link.textContent = text("noConnection");
        setTimeout(listen, RETRY_MS);
    };
}

async function fillCameras() {
    page.camera.replaceChildren(new Option(text("allCameras"), ""));
    try {
        for (const { name } of (await ask("/api/v1/cameras")).cameras) {
            page.camera.append(new Option(name, name));
        }
    } catch {
        // The list of events shows them all the same.
    }
}

translatePage();
document.title = `${text("events")} – Morrowstream`;
page.kind.replaceChildren(new Option(text("allKinds"), ""), ...Object.entries(KINDS).map(([word, key]) => new Option(text(key), word)));
for (const field of [page.kind, page.camera, page.from, page.to]) {
    field.addEventListener("change", () => load(false));
}
page.older.addEventListener("click", () => load(true));
await fillCameras();
listen();
