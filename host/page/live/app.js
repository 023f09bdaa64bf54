// The live page: builds the wall from the host's state messages, puts the pictures on it, and says at every moment
// how far it can be trusted.

import { Camera } from "./camera.js";
import { LargeView } from "./large.js";
import { PhoneLinks } from "./links.js";
import { TileStream } from "./stream.js";
import { copyText, setPhoneCommand } from "../shared/text.js";
import { text, translatePage } from "../shared/words.js";
import { Tile } from "./tile.js";
import { setHidden, setText } from "../shared/view.js";

const REDRAW_MS = 250; // ages, and the fall from live to stalled
const TOOLS_FROM = 8; // cameras, from which on they can be searched and those without a phone stand apart
const DENSE_FROM = 16; // cameras, from which on the grid is dense unless somebody has said otherwise
const SHOW_DELAY_MS = 50; // gathers the tiles that one movement brings in and out of view

const page = {};
for (const id of [
    "wall", "waiting", "waiting-part", "tools", "search", "only-live", "dense", "found", "sources", "message", "message-title", "message-detail", "summary", "link", "announcement", "large", "about",
    "help-phone", "help-link", "help-title", "help-picker", "help-camera", "help-code", "help-command", "help-demo",
    "help-password", "settings-link", "recordings-link",
]) {
    page[id] = document.getElementById(id);
}

translatePage();
const phoneLinks = new PhoneLinks(document.getElementById("phone"));

const tiles = new Map(); // by name, in the order of the wall
const visible = new Set(); // tiles that are on the screen or close to it
let may = []; // what the host lets this user do besides watching
let state = null; // the last state message
let stateRead = 0; // performance.now() when it was read
let lossReason = null; // why there is no connection to the host; null while there is one

// The host's clock, as far as this page knows it. All ages are differences on that clock.
function hostNow() {
    if (typeof state.now !== "number") {
        return Date.now();
    }
    return state.now + (performance.now() - stateRead);
}

function announce(text) {
    page.announcement.textContent = text;
}

const large = new LargeView(page.large, tiles, {
    changed() {
        render();
        showSoon();
    },
    connectPhone: (name) => phoneLinks.show(name),
});

const stream = new TileStream({
    onState(message) {
        const begun = state === null || lossReason !== null;
        const back = state !== null && begun;
        lossReason = null;
        state = message;
        stateRead = performance.now();
        may = message.may ?? [];
        const changed = arrangeWall(message.cameras);
        arrangeSources(message.sources ?? []);
        large.followAddress();
        render();
        if (back) {
            announce(text("connectedAgain"));
        }
        if (changed || begun) {
            fillHelp();
            showSoon();
        }
    },
    async onPicture(picture) {
        const tile = byId.get(picture.id);
        if (tile !== undefined && (await tile.show(picture))) {
            large.follow(tile);
        }
        // Also for a picture that could not be shown: the host holds the next one back until it hears of this one.
        stream.acknowledge(picture);
        if (tile !== undefined && tile.root.dataset.state !== "live") {
            render();
        }
    },
    onLost(reason) {
        if (lossReason === null) {
            announce(`${text("lossTitle")}. ${text("tryingAgain")}.`);
        }
        lossReason = reason;
        render();
    },
});

const byId = new Map(); // rebuilt with every state message, since a restarted host numbers anew

// Returns true when a camera came, went or has another id.
function arrangeWall(cameras) {
    const names = new Set(cameras.map((info) => info.name));
    let changed = false;
    for (const [name, tile] of tiles) {
        if (!names.has(name)) {
            observer.unobserve(tile.root);
            visible.delete(tile);
            tile.root.remove();
            tiles.delete(name);
            changed = true;
        }
    }
    byId.clear();
    for (const info of cameras) {
        let tile = tiles.get(info.name);
        if (tile === undefined) {
            tile = new Tile(new Camera(info.name), {
                openLarge: (name) => large.open(name), connectPhone: (name) => phoneLinks.show(name),
            });
            tiles.set(info.name, tile);
            observer.observe(tile.root);
        }
        changed ||= tile.camera.id !== info.id;
        tile.camera.update(info, typeof state.now === "number" ? state.now : Date.now());
        byId.set(info.id, tile);
    }
    if ([...tiles.keys()].some((name, index) => name !== cameras[index].name)) {
        for (const { name } of cameras) {
            const tile = tiles.get(name);
            tiles.delete(name);
            tiles.set(name, tile);
        }
    }
    placeTiles();
    return changed;
}

// Cameras that no phone was ever seen at come last; where there are many, small and apart.
function placeTiles() {
    const many = tiles.size >= TOOLS_FROM;
    const [free, used] = [[], []];
    for (const tile of tiles.values()) {
        (tile.camera.isFree ? free : used).push(tile);
    }
    place(page.wall, many ? used : [...used, ...free]);
    place(page.waiting, many ? free : []);
    page.tools.hidden = !many;
    const dense = many && (denseChosen ?? tiles.size >= DENSE_FROM);
    page.wall.classList.toggle("dense", dense);
    page.dense.checked = dense;
}

// Only what is out of place moves: a tile that moves loses the focus within it.
function place(list, wanted) {
    const small = list === page.waiting;
    wanted.forEach((tile, index) => {
        tile.isSmall = small;
        if (list.children[index] !== tile.root) {
            list.insertBefore(tile.root, list.children[index] ?? null);
        }
    });
}

// --- Which of many cameras are looked at ------------------------------------------------------------------------------

const DENSE_KEY = "morrowstream.dense";
let denseChosen = null;
try {
    denseChosen = JSON.parse(localStorage.getItem(DENSE_KEY));
} catch {
    // No storage for this page, or something else in it.
}

function filterTiles(now, connected) {
    const many = tiles.size >= TOOLS_FROM;
    const wanted = many ? page.search.value.trim().toLocaleLowerCase() : "";
    const onlyLive = many && page["only-live"].checked && connected;
    let found = 0;
    for (const tile of tiles.values()) {
        const fits = tile.camera.name.toLocaleLowerCase().includes(wanted) && (!onlyLive || tile.camera.delivers(now));
        setHidden(tile.root, !fits);
        found += fits ? 1 : 0;
    }
    setText(page.found, wanted === "" && !onlyLive ? "" : found === 0 ? text("noneFits") : text("found", found, tiles.size));
    const anyIn = (list) => [...list.children].some((root) => !root.hidden);
    setHidden(page.wall, !anyIn(page.wall));
    setHidden(page["waiting-part"], !anyIn(page.waiting));
}

page.search.addEventListener("input", render);
page["only-live"].addEventListener("change", render);
page.tools.addEventListener("submit", (event) => event.preventDefault());
page.dense.addEventListener("change", () => {
    denseChosen = page.dense.checked;
    placeTiles();
    try {
        localStorage.setItem(DENSE_KEY, JSON.stringify(denseChosen));
    } catch {
        // It holds for this visit, then.
    }
});

// The host's own sources, by their keys.
function arrangeSources(keys) {
    const shown = [...page.sources.querySelectorAll("a")].map((link) => link.textContent);
    page.sources.hidden = keys.length === 0;
    if (shown.join("\n") === keys.join("\n")) {
        return;
    }
    const links = keys.map((key) => {
        const link = document.createElement("a");
        link.textContent = key;
        link.href = `/view/${key.split("/").map(encodeURIComponent).join("/")}`;
        return link;
    });
    page.sources.replaceChildren(page.sources.firstElementChild, ...links);
}

// --- Which pictures the host is to send -------------------------------------------------------------------------

const tileOfRoot = (root) => tiles.get(root.dataset.name);

// The margin starts a tile's pictures just before it is scrolled into view.
const observer = new IntersectionObserver((entries) => {
    for (const entry of entries) {
        const tile = tileOfRoot(entry.target);
        if (tile !== undefined) {
            visible[entry.isIntersecting ? "add" : "delete"](tile);
        }
    }
    showSoon();
}, { rootMargin: "120px" });

let showTimer = 0;
function showSoon() {
    clearTimeout(showTimer);
    showTimer = setTimeout(show, SHOW_DELAY_MS);
}

function show() {
    if (document.hidden) {
        stream.show([]);
        return;
    }
    const ids = new Set([...visible].map((tile) => tile.camera.id));
    if (large.camera !== null) {
        ids.add(large.camera.id);
    }
    stream.show([...ids]);
}

document.addEventListener("visibilitychange", () => {
    show();
    if (!document.hidden) {
        stream.retryNow();
        render();
    }
});
addEventListener("online", () => stream.retryNow());

// --- What can be looked back at -----------------------------------------------------------------------------------

const RECORDINGS_MS = 60000;
let recorded = new Set(); // names of cameras

async function askRecordings() {
    try {
        const answer = await fetch(new URL("/api/v1/recordings", location.origin), { cache: "no-store" });
        if (answer.ok) {
            const { cameras } = await answer.json();
            recorded = new Set(cameras.filter((camera) => !camera.removed).map((camera) => camera.name));
            setHidden(page["recordings-link"], cameras.length === 0);
        }
    } catch {
        // What was known stays; it is asked again.
    }
}
askRecordings();
setInterval(() => document.hidden || askRecordings(), RECORDINGS_MS);

// --- What the page says ------------------------------------------------------------------------------------------

function summary(now) {
    if (tiles.size === 0) {
        return "";
    }
    const live = [...tiles.values()].filter((tile) => tile.camera.delivers(now)).length;
    return text("summary", tiles.size, live);
}

function render() {
    if (state !== null) {
        const now = hostNow();
        const connected = lossReason === null;
        const offers = {
            phone: connected && may.includes("links"), control: connected && may.includes("settings"), recordings: recorded,
        };
        for (const tile of tiles.values()) {
            tile.render(tile.camera, now, connected, offers);
        }
        if (large.camera !== null) {
            large.render(large.camera, now, connected, offers);
        }
        filterTiles(now, connected);
        setText(page.summary, connected ? summary(now) : "");
    }
    renderLink();
    renderMessage();
}

const LINK_TEXT = {
    silent: text("hostSilent"),
    closed: text("linkLost"),
    refused: text("signedOut"),
};

function renderLink() {
    const words = lossReason !== null ? LINK_TEXT[lossReason] : text(state === null ? "connecting" : "connected");
    setText(page.link, words);
    page.link.dataset.link = lossReason !== null ? "lost" : state === null ? "connecting" : "connected";
    const title = lossReason !== null ? `${text("notConnected")} – Morrowstream` : "Morrowstream";
    if (document.title !== title) {
        document.title = title;
    }
}

// Stands in for the wall while there is none.
function renderMessage() {
    page.message.hidden = tiles.size > 0;
    if (lossReason === "refused") {
        setText(page["message-title"], text("asksForSignIn"));
        setText(page["message-detail"], text("reloadAndSignIn"));
    } else if (lossReason !== null) {
        setText(page["message-title"], text("noAnswerTitle"));
        setText(page["message-detail"], text("noAnswerDetail"));
    } else if (state === null) {
        setText(page["message-title"], text("connectingToHost"));
        setText(page["message-detail"], "");
    } else {
        setText(page["message-title"], text("noCameras"));
        setText(
            page["message-detail"],
            text(may.includes("settings") ? "addCameras" : "adminAddsCameras"),
        );
    }
}

// --- Help ----------------------------------------------------------------------------------------------------------

function fillHelp() {
    page["settings-link"].hidden = !may.includes("settings");
    page["help-link"].hidden = page["help-phone"].hidden = !may.includes("links");
    const picker = page["help-camera"];
    const chosen = picker.value;
    const free = [...tiles.values()].find((tile) => !tile.camera.info.connected);
    picker.replaceChildren(...[...tiles.keys()].map((name) => new Option(name, name)));
    page["help-picker"].hidden = tiles.size === 0;
    page["help-code"].disabled = tiles.size === 0;
    if (tiles.has(chosen)) {
        picker.value = chosen;
    } else if (free !== undefined) {
        picker.value = free.camera.name;
    }
    page["help-demo"].hidden = !state.demo;
    page["help-password"].hidden = state.demo;
    setText(page.about, state.version ? `Morrowstream ${state.version}` : "Morrowstream");
    fillHelpCommand();
}

function fillHelpCommand() {
    setPhoneCommand(page["help-command"], page["help-camera"].value || "NAME", state?.demo ?? false);
}

page["help-camera"].addEventListener("change", fillHelpCommand);
page["help-code"].addEventListener("click", () => phoneLinks.show(page["help-camera"].value));
page["help-link"].addEventListener("click", (event) => {
    // Without a change of the address: a camera may be called "help".
    event.preventDefault();
    page["help-phone"].scrollIntoView({ block: "start" });
    page["help-title"].focus({ preventScroll: true });
});

document.addEventListener("click", async (event) => {
    const button = event.target.closest("button[data-copy]");
    if (button === null) {
        return;
    }
    const command = button.parentElement.querySelector("code").textContent;
    const copied = await copyText(command);
    button.textContent = text(copied ? "copied" : "notCopied");
    announce(button.textContent);
    setTimeout(() => (button.textContent = text("copy")), 2000);
});

fillHelpCommand();
render();
setInterval(render, REDRAW_MS);
