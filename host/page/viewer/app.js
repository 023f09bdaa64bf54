// One source for one person: the picture as a viewing phone gets it, and the phone's controls.
//
// The host sends one picture at a time and waits until it is drawn, so a slow line shows fewer pictures, never older
// ones. What the controls say goes to the host as the text that a phone would send, and into the address, so that a
// view can be kept as a bookmark.

import { PacketError, parsePacket } from "./packet.js";
import { FullScreen } from "../shared/fullscreen.js";
import { Gestures } from "../shared/gestures.js";
import { setHidden, setText } from "../shared/view.js";
import { text, translatePage } from "../shared/words.js";
import { WHOLE, areaOf, percentText, zoomInto, zoomAround, isWhole } from "./zoom.js";

const RETRY_MS = 1000;
const RETRY_LATER_MS = 5000;
const ASK_TIMEOUT_MS = 1500;
const RATE_WINDOW_MS = 3000;
const SILENCE_MS = 4000; // the host says something each second
const LEAST_DRAG_PX = 12; // less is a click
const SET_DELAY_MS = 120; // gathers the steps of a slider that moves

const page = {};
for (const id of [
    "viewer", "name", "state", "stage", "picture", "selection", "notice", "notice-title", "notice-detail", "size", "fps",
    "fps-text", "quality", "quality-text", "rotate", "zoom-in", "zoom-out", "shown", "rate", "data", "part", "previous",
    "next", "full",
]) {
    page[id] = document.getElementById(id);
}
translatePage();
const context = page.picture.getContext("2d", { alpha: false });

function keyOfAddress() {
    try {
        return decodeURIComponent(location.pathname.slice("/view/".length));
    } catch {
        return "";
    }
}

let key = "";

function showKey() {
    key = keyOfAddress();
    setText(page.name, key);
    page.picture.setAttribute("aria-label", text("pictureFrom", key));
    document.title = `${key} – Morrowstream`;
}

// --- What is asked for ---------------------------------------------------------------------------------------------

const view = { zoom: WHOLE, turns: 0 }; // thousandths of the source's picture; quarter turns clockwise

function parameters() {
    const [width, height] = page.size.value.split("x");
    const { x, y, width: w, height: h } = view.zoom;
    return `width=${width}&height=${height}&fps=${page.fps.value}&quality=${page.quality.value}` +
        `&zx=${x}&zy=${y}&zw=${w}&zh=${h}&rotate=${view.turns * 90}`;
}

function readAddress() {
    const asked = new URLSearchParams(location.search);
    const number = (name, least, most, otherwise) => {
        const value = Number(asked.get(name) ?? NaN);
        return Number.isFinite(value) ? Math.min(Math.max(Math.round(value), least), most) : otherwise;
    };
    page.fps.value = number("fps", 1, 25, page.fps.value);
    page.quality.value = number("quality", 5, 95, page.quality.value);
    view.turns = Math.floor(number("rotate", 0, 270, 0) / 90);
    view.zoom = {
        x: number("zx", 0, 990, 0), y: number("zy", 0, 990, 0),
        width: number("zw", 10, 1000, 1000), height: number("zh", 10, 1000, 1000),
    };
    const size = `${asked.get("width")}x${asked.get("height")}`;
    if ([...page.size.options].some((option) => option.value === size)) {
        page.size.value = size;
    }
}

function showControls() {
    setText(page["fps-text"], text("perSecond", page.fps.value));
    setText(page["quality-text"], page.quality.value);
    setText(page.part, isWhole(view.zoom) ? text("whole") : percentText(view.zoom));
    page["zoom-out"].disabled = isWhole(view.zoom);
}

let setTimer = 0;
function changed() {
    showControls();
    clearTimeout(setTimer);
    setTimer = setTimeout(() => {
        history.replaceState(null, "", `?${parameters()}`);
        send(`set ${parameters()}`);
    }, SET_DELAY_MS);
}

for (const id of ["size", "fps", "quality"]) {
    page[id].addEventListener("input", changed);
}
page.rotate.addEventListener("click", () => {
    view.turns = (view.turns + 1) % 4;
    changed();
});
page["zoom-in"].addEventListener("click", () => {
    view.zoom = zoomAround(view.zoom, 0.6);
    changed();
});
page["zoom-out"].addEventListener("click", () => {
    view.zoom = WHOLE;
    changed();
});
document.getElementById("controls").addEventListener("submit", (event) => event.preventDefault());

// --- Zoom by dragging ----------------------------------------------------------------------------------------------

// Where the picture lies in the stage: the canvas keeps the picture's proportions in the middle of it.
function pictureBox() {
    const box = page.picture.getBoundingClientRect();
    const scale = Math.min(box.width / page.picture.width, box.height / page.picture.height);
    const width = page.picture.width * scale;
    const height = page.picture.height * scale;
    return { left: box.left + (box.width - width) / 2, top: box.top + (box.height - height) / 2, width, height };
}

let drag = null;

function dragged(event) {
    const box = pictureBox();
    const clampX = (x) => Math.min(Math.max(x, box.left), box.left + box.width);
    const clampY = (y) => Math.min(Math.max(y, box.top), box.top + box.height);
    const xs = [clampX(drag.x), clampX(event.clientX)].sort((a, b) => a - b);
    const ys = [clampY(drag.y), clampY(event.clientY)].sort((a, b) => a - b);
    return { box, left: xs[0], top: ys[0], width: xs[1] - xs[0], height: ys[1] - ys[0] };
}

function endDrag() {
    drag = null;
    page.selection.hidden = true;
}

page.picture.addEventListener("pointerdown", (event) => {
    if (event.button === 0 && event.isPrimary && event.pointerType !== "touch") {
        drag = { x: event.clientX, y: event.clientY };
        page.picture.setPointerCapture(event.pointerId);
    }
});
page.picture.addEventListener("pointermove", (event) => {
    if (drag === null) {
        return;
    }
    const area = dragged(event);
    const stage = page.stage.getBoundingClientRect();
    page.selection.hidden = false;
    Object.assign(page.selection.style, {
        left: `${area.left - stage.left}px`, top: `${area.top - stage.top}px`,
        width: `${area.width}px`, height: `${area.height}px`,
    });
});
page.picture.addEventListener("pointerup", (event) => {
    if (drag === null) {
        return;
    }
    const { box, ...area } = dragged(event);
    endDrag();
    if (area.width < LEAST_DRAG_PX || area.height < LEAST_DRAG_PX) {
        return;
    }
    view.zoom = zoomInto(view.zoom, view.turns, {
        left: (area.left - box.left) / box.width, top: (area.top - box.top) / box.height,
        width: area.width / box.width, height: area.height / box.height,
    });
    changed();
});
page.picture.addEventListener("pointercancel", endDrag);
page.picture.addEventListener("dblclick", () => page["zoom-out"].click());

// --- Fingers -------------------------------------------------------------------------------------------------------

let boxAtFirst = null; // where the picture was before the fingers moved it

new Gestures(page.stage, {
    swiped: turn,
    maySwipe: () => isWhole(view.zoom),
    changing(change) {
        boxAtFirst ??= pictureBox();
        if (change === null) {
            boxAtFirst = null;
            page.picture.style.transform = "";
            return;
        }
        // Until the host sends that part, the page moves what it has.
        const stage = page.stage.getBoundingClientRect();
        const { scale, from, to } = change;
        page.picture.style.transformOrigin = `${from.x - stage.left}px ${from.y - stage.top}px`;
        page.picture.style.transform = `translate(${to.x - from.x}px, ${to.y - from.y}px) scale(${scale})`;
    },
    changed(change) {
        page.picture.style.transform = "";
        if (boxAtFirst !== null) {
            view.zoom = zoomInto(view.zoom, view.turns, areaOf(boxAtFirst, change));
            boxAtFirst = null;
            changed();
        }
    },
});

// --- From camera to camera, and the whole screen -------------------------------------------------------------------

let cameras = []; // by name, in the host's order

async function listCameras() {
    try {
        const answer = await fetch(new URL("/health", location.origin), { cache: "no-store" });
        cameras = answer.ok ? (await answer.json()).cameras.map((camera) => camera.name) : cameras;
    } catch {
        // The stream tells of a host that is away.
    }
    const alone = cameras.length === 0 || (cameras.length === 1 && cameras[0] === key);
    setHidden(page.previous, alone);
    setHidden(page.next, alone);
}

// In this page: the screen stays the picture's, and size, rate and quality what they are.
function turn(step) {
    if (page.next.hidden) {
        return;
    }
    const index = cameras.indexOf(key);
    const name = cameras[index < 0 && step < 0 ? cameras.length - 1 : (index + step + cameras.length) % cameras.length];
    view.zoom = WHOLE;
    view.turns = 0;
    history.pushState(null, "", `/view/${name.split("/").map(encodeURIComponent).join("/")}?${parameters()}`);
    openSource();
}

page.previous.addEventListener("click", () => turn(-1));
page.next.addEventListener("click", () => turn(1));
document.addEventListener("keydown", (event) => {
    const elsewhere = event.altKey || event.ctrlKey || event.metaKey || event.target.closest("input, select") !== null;
    if (!elsewhere && (event.key === "ArrowLeft" || event.key === "ArrowRight")) {
        turn(event.key === "ArrowLeft" ? -1 : 1);
    }
});
addEventListener("popstate", () => {
    readAddress();
    openSource();
});
new FullScreen(page.full, page.stage, page.viewer);

// --- The stream ----------------------------------------------------------------------------------------------------

let socket = null;
let lastHeard = 0;
let hasPicture = false; // the source has one now, by what the host said last
let drawn = false; // a picture of this connection is on the screen
let arrivals = []; // of the last seconds: [time, bytes]
let askTimer = 0;
let opened = 0; // sources so far

function send(message) {
    if (socket !== null && socket.readyState === WebSocket.OPEN) {
        socket.send(message);
    }
}

function say(state, word, title, detail) {
    page.viewer.dataset.state = state;
    setText(page.state, word);
    page.notice.hidden = title === "";
    setText(page["notice-title"], title);
    setText(page["notice-detail"], detail);
}

function connect() {
    const own = new WebSocket(
        `${location.protocol === "https:" ? "wss:" : "ws:"}//${location.host}${location.pathname}`);
    own.binaryType = "arraybuffer";
    socket = own;
    lastHeard = performance.now();
    hasPicture = true;
    drawn = false;
    own.onopen = () => send(`set ${parameters()}`);
    own.onmessage = (event) => {
        if (socket === own) {
            lastHeard = performance.now();
            typeof event.data === "string" ? hear(JSON.parse(event.data)) : receive(event.data, own);
        }
    };
    own.onclose = () => socket === own && lose();
}

function lose() {
    socket?.close();
    socket = null;
    say("lost", text("lost"), text("lossTitle"), text("tryingAgain"));
    // A host that takes the socket and shows nothing is not to be hammered.
    askLater(drawn ? 0 : RETRY_LATER_MS);
}

function askLater(delay) {
    clearTimeout(askTimer);
    askTimer = setTimeout(askHost, delay);
}

// What the address names now.
function openSource() {
    clearTimeout(askTimer);
    ++opened;
    const former = socket;
    socket = null;
    former?.close();
    arrivals = [];
    showKey();
    showControls();
    say("waiting", text("connecting"), text("connecting"), "");
    connect();
    listCameras();
}

// A plain request before each new socket tells a host that is away from a source that is, and a browser slows down
// sockets that are refused one after the other.
async function askHost() {
    let status = 0;
    const source = opened;
    try {
        const answer = await fetch(new URL(location.pathname, location.origin), {
            method: "HEAD", cache: "no-store", signal: AbortSignal.timeout(ASK_TIMEOUT_MS),
        });
        status = answer.status;
    } catch {
        // No answer: the host is down or out of reach.
    }
    if (source !== opened) {
        return; // another one has been turned to meanwhile
    }
    if (status === 200) {
        connect();
        return;
    }
    if (status === 404) {
        say("offline", text("gone"), text("sourceGone"), text("looksForIt"));
    } else if (status === 401 || status === 403) {
        say("lost", text("signedOut"), text("asksForSignIn"), text("reloadAndSignIn"));
    } else {
        say("lost", text("lost"), text("lossTitle"), text("tryingAgain"));
    }
    askLater(status === 0 ? RETRY_MS : RETRY_LATER_MS);
}

function hear(message) {
    if (message.type === "view") {
        hasPicture = message.picture;
        showState();
    }
}

function showState() {
    if (!drawn) {
        return;
    }
    if (hasPicture) {
        say("live", text("live"), "", "");
    } else {
        say("waiting", text("waiting"), text("noPictureHere"), text("comesWithPhone"));
    }
}

async function receive(buffer, own) {
    let packet;
    try {
        packet = parsePacket(buffer);
        const bitmap = await createImageBitmap(packet.jpeg);
        if (socket === own) {
            draw(bitmap, packet);
        }
        bitmap.close();
    } catch (error) {
        if (error instanceof PacketError) {
            own.close(); // what follows would make no sense either
            return;
        }
        // No picture after all: the next one may be.
    }
    if (socket === own) {
        send(`ack ${packet.sequence}`);
    }
    arrivals.push([performance.now(), buffer.byteLength]);
}

function draw(bitmap, { content, sequence }) {
    const { left, top, width, height } = content;
    if (width > 0 && height > 0) {
        if (page.picture.width !== width || page.picture.height !== height) {
            page.picture.width = width;
            page.picture.height = height;
        }
        context.drawImage(bitmap, left, top, width, height, 0, 0, width, height);
        setText(page.shown, `${width} × ${height}`);
    }
    page.viewer.dataset.seq = sequence;
    if (!drawn) {
        drawn = true;
        showState();
    }
}

function showFigures() {
    const now = performance.now();
    arrivals = arrivals.filter(([time]) => now - time < RATE_WINDOW_MS);
    if (arrivals.length < 2) {
        setText(page.rate, "–");
        setText(page.data, "–");
        return;
    }
    const seconds = (arrivals.at(-1)[0] - arrivals[0][0]) / 1000;
    const bytes = arrivals.slice(1).reduce((sum, [, size]) => sum + size, 0);
    setText(page.rate, text("fps", ((arrivals.length - 1) / seconds).toFixed(1)));
    setText(page.data, text("kilobytes", (bytes / seconds / 1000).toFixed(1)));
}

setInterval(() => {
    showFigures();
    if (socket !== null && performance.now() - lastHeard > SILENCE_MS) {
        lose();
    }
}, 500);

readAddress();
openSource();
