// The camera page: makes this phone a camera of the server and keeps it one.

import { Awake } from "./awake.js";
import { PhoneCamera, obstacle } from "./camera.js";
import { darken, lighten } from "./dark.js";
import { Link } from "./link.js";
import { ofPhone, ofTab, recall, remember } from "./memory.js";
import { hideMessage, showMessage } from "./message.js";
import { Sender } from "./sender.js";
import { codeInAddress, forgetCode, leave, pairByCode, pairByName, readSession } from "./session.js";
import { sizeText } from "../shared/text.js";
import { setHidden, setText } from "../shared/view.js";
import { text, translatePage } from "../shared/words.js";

const MOST_RATE = 15;
const USUAL = { size: "640x480", rate: 5, facing: "environment" };
const CHOICES_KEY = "morrowstream.phone";
const RUNNING_KEY = "morrowstream.phone.running";
// Windows of other apps, which mostly give a page no camera.
const INSIDE_APP = /FBAN|FBAV|Instagram|\bLine\/|MicroMessenger|Snapchat|musical_ly|BytedanceWebview|; wv\)/;

const page = {};
for (const id of [
    "phone-page", "title", "state", "pair", "pair-button", "no-camera", "sign-in", "sign-in-button", "login", "password",
    "camera", "preview", "notice", "notice-title", "notice-detail", "now-sent", "sent", "in-an-hour", "size", "rate", "hint",
    "flip", "torch", "dark", "start", "leave",
]) {
    page[id] = document.getElementById(id);
}

const choices = { ...USUAL, ...recall(ofPhone, CHOICES_KEY) };
const isOneOf = (select, value) => [...select.options].some((option) => option.value === String(value));

// --- The parts -------------------------------------------------------------------------------------------------------

let asking = true; // whether this browser has a session
let code = codeInAddress();
let cameraName = null; // of the session; null without one
let started = false;
let busy = false; // a request or a camera is being waited for
let reported = null; // the state that the host heard last
let reportedAt = 0;
let lampBusy = false;

const awake = new Awake(render);
const camera = new PhoneCamera(page.preview, { onChange: changed });
const link = new Link({
    onPhase: () => {
        sender.update();
        render();
    },
    onAcknowledged: (delay, answerTime) => sender.acknowledged(delay, answerTime),
    onControl: obey,
    onReplaced() {
        stopCamera();
        showMessage("replaced");
    },
    onGone() {
        stopCamera();
        cameraName = null;
        render();
        showMessage("gone");
    },
});

translatePage();
page.rate.append(...Array.from({ length: MOST_RATE }, (_, n) => new Option(text("perSecond", n + 1), n + 1)));
for (const name of ["size", "rate"]) {
    if (!isOneOf(page[name], choices[name])) {
        choices[name] = USUAL[name];
    }
    page[name].value = choices[name];
}
const sender = new Sender(page.preview, link, choices.size, choices.rate, { onBeat: beat });

const wantedSize = () => choices.size.split("x").map(Number);
const isPaused = () => document.hidden || !camera.isOpen || camera.isMuted;

// --- What the host hears -----------------------------------------------------------------------------------------------

function stateNow(word = isPaused() ? "paused" : "running") {
    const { size: [long, short], rate } = sender.pace;
    // Before the first picture: what it will be, as far as the camera tells.
    const [width, height] = sender.width > 0 ? [sender.width, sender.height] : [long, short];
    return { type: "state", state: word, facing: camera.facing, width, height, rate, torch: camera.torch };
}

function report() {
    if (!started) {
        return;
    }
    const state = stateNow();
    const now = performance.now();
    const differs = (keys) => reported === null || keys.some((key) => reported[key] !== state[key]);
    const soon = differs(["state", "facing", "torch"]);
    if (soon || (now - reportedAt > 1000 && differs(["width", "height", "rate"]))) {
        reported = state;
        reportedAt = now;
        link.tell(state);
    }
}

function changed() {
    sender.run(started && !isPaused());
    report();
    render();
}

function beat() {
    link.beat();
    if (started && !document.hidden) {
        camera.look(performance.now());
    }
    report();
    renderState();
    renderFigures();
}

// --- Start and stop --------------------------------------------------------------------------------------------------------

async function start() {
    const reason = obstacle();
    if (reason !== null) {
        showMessage(reason);
        return;
    }
    hideMessage();
    busy = started = true;
    sender.startCounting();
    render();
    try {
        await camera.open(choices.facing, wantedSize());
    } catch (error) {
        busy = false;
        stopCamera();
        showMessage(error.reason === "noPermission" && INSIDE_APP.test(navigator.userAgent) ? "insideApp" : error.reason);
        return;
    }
    busy = false;
    if (!started) {
        return; // stopped while the permission was asked for
    }
    remember(ofTab, RUNNING_KEY, true);
    awake.want(true);
    reported = stateNow();
    link.start(reported);
    changed();
}

function stopCamera() {
    started = false;
    reported = null;
    link.stop(stateNow("stopped"));
    camera.close();
    awake.want(false);
    remember(ofTab, RUNNING_KEY, false);
    lighten();
    changed();
}

// What a remote control and the buttons of the page do alike.
async function turn() {
    try {
        await camera.turn();
    } catch (error) {
        stopCamera();
        showMessage(error.reason);
        return;
    }
    choices.facing = camera.facing;
    remember(ofPhone, CHOICES_KEY, choices);
    changed();
}

async function choose({ size = choices.size, rate = choices.rate }) {
    const other = size !== choices.size;
    Object.assign(choices, { size, rate });
    page.size.value = size;
    page.rate.value = rate;
    remember(ofPhone, CHOICES_KEY, choices);
    sender.wish(size, rate);
    if (other && started) {
        await camera.resize(wantedSize()).catch(() => {}); // with what the camera gives, then
    }
    changed();
}

async function light(on) {
    if (!lampBusy) {
        lampBusy = true;
        await camera.setTorch(on);
        lampBusy = false;
    }
}

async function obey(wish) {
    if (typeof wish.torch === "boolean") {
        await light(wish.torch);
    }
    if (wish.facing !== undefined && wish.facing !== camera.facing) {
        await turn();
    }
    const size = `${wish.width}x${wish.height}`;
    await choose({
        ...(isOneOf(page.size, size) ? { size } : {}),
        ...(isOneOf(page.rate, wish.rate) ? { rate: wish.rate } : {}),
    });
    reported = null; // what became of it is told also where nothing did
    report();
}

// --- Becoming a camera --------------------------------------------------------------------------------------------------------

function take({ camera: name }) {
    cameraName = name;
    if (code !== null) {
        code = null;
        forgetCode();
    }
    render();
}

const REFUSED = { 0: "silent", 403: "codeUsed", 429: "tooManyTries" };

page["pair-button"].addEventListener("click", async () => {
    const reason = obstacle();
    if (reason !== null) {
        showMessage(reason); // the code is not wasted on a browser that cannot use it
        return;
    }
    busy = true;
    render();
    const answer = await pairByCode(code);
    busy = false;
    if (answer.status === 200) {
        take(answer);
        start();
        return;
    }
    if (answer.status === 403) {
        code = null;
        forgetCode();
    }
    render();
    showMessage(REFUSED[answer.status] ?? "silent");
});

page["sign-in"].addEventListener("submit", async (event) => {
    event.preventDefault();
    busy = true;
    render();
    const answer = await pairByName(page.login.value, page.password.value);
    busy = false;
    if (answer.status === 200) {
        page.password.value = "";
        hideMessage();
        take(answer);
        page.title.focus();
    } else {
        render();
        showMessage(answer.status === 403 ? "wrongPassword" : REFUSED[answer.status] ?? "silent");
    }
});

page.leave.addEventListener("click", async () => {
    if (!confirm(text("forgetSure", cameraName))) {
        return;
    }
    stopCamera();
    const { status } = await leave();
    if (status === 0) {
        showMessage("silent");
        return;
    }
    cameraName = null;
    render();
});

// --- On the screen ---------------------------------------------------------------------------------------------------------------

function render() {
    const paired = cameraName !== null;
    setHidden(page.pair, code === null || started);
    setHidden(page["no-camera"], paired || code !== null || asking);
    setHidden(page.camera, !paired || (code !== null && !started));
    page["pair-button"].disabled = page["sign-in-button"].disabled = busy;
    setText(page.title, cameraName ?? text("phoneAsCamera"));
    document.title = paired ? `${cameraName} – Morrowstream` : `${text("phoneAsCamera")} – Morrowstream`;
    renderState();
    renderControls();
}

// The word at the top, in the colours of the live page.
function renderState() {
    const [kind, word] = stateShown();
    page["phone-page"].dataset.state = kind;
    setText(page.state, word);
    const [title, detail] = noticeShown();
    setHidden(page.notice, title === "");
    setText(page["notice-title"], title);
    setText(page["notice-detail"], detail);
    setHidden(page["notice-detail"], detail === "");
    const hint = hintShown();
    setHidden(page.hint, hint === "");
    setText(page.hint, hint);
}

function stateShown() {
    if (cameraName === null) {
        return ["waiting", ""];
    }
    if (!started) {
        return ["waiting", text("stopped")];
    }
    switch (link.phase) {
    case "ready":
        return isPaused() ? ["paused", text("paused")] : ["live", text("live")];
    case "open":
        return ["waiting", text("serverWaits")];
    case "away":
        return ["lost", text("noConnection")];
    default:
        return ["waiting", text("connecting")];
    }
}

function noticeShown() {
    if (!started) {
        return [text("stopped"), text("pressStart")];
    }
    if (camera.isMuted || (!camera.isOpen && !busy)) {
        return [text("paused"), text("cameraTaken")];
    }
    return camera.isOpen ? ["", ""] : [text("oneMoment"), text("allowCamera")];
}

function hintShown() {
    if (!started) {
        return "";
    }
    const { rate, size: [long] } = sender.pace;
    if (link.phase === "away") {
        return text("tryingAgain");
    }
    if (link.phase === "ready" && !link.watched) {
        return text("nobodyWatches");
    }
    if (link.phase === "ready" && (rate < choices.rate || long < wantedSize()[0])) {
        return text("lineSlow");
    }
    return awake.refused ? text("screenMayTurnOff") : "";
}

function renderControls() {
    setText(page.start, text(started ? "stop" : "start"));
    page.start.dataset.does = started ? "stop" : "start";
    page.preview.dataset.facing = camera.facing;
    page.flip.disabled = !started || !camera.isOpen || !camera.several;
    const lamp = camera.torch;
    setHidden(page.torch, lamp === null);
    page.torch.setAttribute("aria-pressed", String(lamp === true));
    page.dark.disabled = !started;
    setHidden(page.leave.parentElement, started);
    renderFigures();
}

function bytesText(bytes) {
    const number = (value) => value.toLocaleString(document.documentElement.lang, {
        maximumFractionDigits: value < 10 ? 1 : 0,
    });
    return bytes < 1e9 ? text("megabytes", number(bytes / 1e6)) : text("gigabytes", number(bytes / 1e9));
}

function renderFigures() {
    const sends = started && sender.width > 0;
    setText(page["now-sent"], sends ? sizeText(sender.width, sender.height) : "–");
    setText(page.sent, sender.bytes > 0 ? bytesText(sender.bytes) : "–");
    const forecast = started ? sender.bytesAnHour : null;
    setText(page["in-an-hour"], forecast === null ? "–" : bytesText(forecast));
}

// --- Buttons ----------------------------------------------------------------------------------------------------------------------

page.start.addEventListener("click", () => (started ? stopCamera() : start()));
page.flip.addEventListener("click", turn);
page.torch.addEventListener("click", () => light(camera.torch !== true));
page.size.addEventListener("change", () => choose({ size: page.size.value }));
page.rate.addEventListener("change", () => choose({ rate: Number(page.rate.value) }));
page.dark.addEventListener("click", darken);

// --- What happens to a phone ---------------------------------------------------------------------------------------------------------

document.addEventListener("visibilitychange", () => {
    if (!document.hidden && started) {
        camera.returned();
        link.wake();
    }
    changed();
});
addEventListener("online", () => link.wake());
addEventListener("pagehide", () => started && link.stop(stateNow("stopped")));
addEventListener("pageshow", (event) => {
    if (event.persisted && started) {
        camera.returned();
        link.start(stateNow());
    }
});
// Another code, scanned while the page is open.
addEventListener("hashchange", () => {
    code = codeInAddress();
    if (code !== null && started) {
        stopCamera();
    }
    hideMessage();
    render();
});

async function begin() {
    render();
    const reason = obstacle();
    let answer = await readSession();
    while (answer.status === 0 || answer.status >= 500) {
        setText(page.state, text("noAnswerTitle"));
        await new Promise((done) => setTimeout(done, 1500));
        answer = await readSession();
    }
    asking = false;
    if (answer.status === 200) {
        cameraName = answer.camera;
    }
    render();
    if (reason !== null) {
        showMessage(reason);
    } else if (INSIDE_APP.test(navigator.userAgent)) {
        showMessage("insideApp"); // it may still work
    }
    // The browser ended this page while it was sending, or somebody reloaded it.
    if (cameraName !== null && code === null && reason === null && recall(ofTab, RUNNING_KEY) === true) {
        start();
    }
}

begin();
