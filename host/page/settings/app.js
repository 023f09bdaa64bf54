// The page of the settings: reads the documents from the host, shows each as a form, and brings back what was changed.

import { make } from "./field.js";
import { SettingsForm } from "./form.js";
import { noticeLines } from "./notices.js";
import { phoneList, tokenList } from "./phones.js";
import { text, translatePage } from "../shared/words.js";
import { setDocumentLanguage } from "./text.js";

const page = {};
for (const id of [
    "title", "message", "message-title", "message-detail", "banner", "form", "values", "lists", "own", "language",
    "language-field", "trust-field", "trust-name", "fingerprint", "trust-again", "bar", "state", "discard", "save",
]) {
    page[id] = document.getElementById(id);
}

let host = null; // what /settings/state said: token, languages
let busy = false;
let said = null; // what the bar says until the next edit

// A document, the form that it is shown in, and where. The first is the component's, the other one the host's own.
class Shown {
    form = null;
    source = ""; // as it was read
    version = "";

    // place(form): puts what the form has on the page
    constructor(address, place) {
        this.address = address;
        this.place = place;
    }

    show(content, version) {
        const next = new SettingsForm(content, { edited, readSecret });
        const focus = this.form?.placeOf(document.activeElement) ?? null;
        this.form = next;
        this.source = content;
        this.version = version;
        this.place(next);
        if (focus !== null) {
            next.fieldAt(focus)?.control.focus();
        }
    }
}

// The fields of an element in a form of their own: browsers take two passwords in one form for a new one and its repetition.
function formsOf(fields) {
    const forms = new Map(); // by element
    for (const field of fields) {
        const group = field.element.parentNode;
        if (!forms.has(group)) {
            const form = make("form", { className: "fields", noValidate: true, autocomplete: "off" });
            form.addEventListener("submit", (event) => event.preventDefault());
            forms.set(group, form);
        }
        forms.get(group).append(field.root);
    }
    return forms.values();
}

const component = new Shown("/settings/document", (form) => {
    for (const old of [...page.values.children]) {
        if (old !== page["language-field"] && old !== page["trust-field"]) {
            old.remove();
        }
    }
    page.values.prepend(...[...form.values.values()].map((field) => field.root));
    page.lists.replaceChildren(...form.lists.map((list) => list.root));
});
const own = new Shown("/settings/preferences", (form) => {
    const panels = [...form.groups].map(([title, fields]) => {
        const heading = make("h2", { textContent: title === "" ? text("viewing") : title });
        heading.id = `${fields[0].id}-group`;
        const panel = make("section", { className: "panel" }, make("div", { className: "panel-head" }, heading), ...formsOf(fields));
        panel.setAttribute("aria-labelledby", heading.id);
        if (fields.some((field) => field.element.nodeName === "kinds")) {
            panel.append(notices.root);
        }
        return panel;
    });
    page.own.replaceChildren(...panels, ...form.lists.map((list) => list.root));
});
const documents = [component, own];

// --- Talking to the host ------------------------------------------------------------------------------------------------

class HostError extends Error {
    constructor(status, problems, words) {
        super(words);
        this.status = status; // 0: no answer
        this.problems = problems; // pairs of a path in the document and words
    }
}

async function ask(method, path, { body, headers = {}, json = false } = {}) {
    let answer;
    try {
        // An address with a sign-in in it, as people keep it for a bookmark, is no base for a request.
        answer = await fetch(new URL(path, location.origin), {
            method, body, cache: "no-store",
            headers: { ...headers, ...(host === null ? {} : { "X-Settings-Token": host.token }) },
        });
        const content = await answer.text();
        if (answer.ok) {
            return { content: json ? JSON.parse(content) : content, version: answer.headers.get("ETag"),
                written: answer.headers.get("X-Settings-Written") !== "no", conflicts: answer.headers.get("X-Settings-Conflicts") };
        }
        const told = answer.headers.get("Content-Type")?.match(/^application\/(problem\+)?json/u) ? JSON.parse(content) : {};
        throw new HostError(answer.status, told.problems ?? [], told.text ?? told.detail ?? content.trim());
    } catch (error) {
        throw error instanceof HostError ? error : new HostError(0, [], String(error));
    }
}

async function readState() {
    host = (await ask("GET", "/settings/state", { json: true })).content;
    host.language.configured ||= host.language.active; // while none is chosen
    page["trust-field"].hidden = host.trust === null;
    if (host.trust !== null) {
        page["trust-name"].textContent = text(host.trust.own ? "authorityFingerprint" : "certificateFingerprint");
        page.fingerprint.textContent = host.trust.fingerprint;
        page["trust-again"].hidden = !host.trust.replaced;
    }
}

// A restarted host has a new token. The person is asked for nothing as long as the sign-in holds.
async function askWithToken(...question) {
    try {
        return await ask(...question);
    } catch (error) {
        if (error.status !== 403) {
            throw error;
        }
        await readState();
        return await ask(...question);
    }
}

// A list of the interface for programs, and what is done to it.
const listAt = (name) => ({
    read: async () => (await ask("GET", `/api/v1/${name}`, { json: true })).content[name],
    revoke: (id) => ask("DELETE", `/api/v1/${name}/${encodeURIComponent(id)}`),
    say,
    complain: (error) => showBanner(error instanceof HostError ? wordsFor(error) : error.message),
});
const phones = phoneList(document.getElementById("phones"), listAt("phones"));
const tokens = tokenList(document.getElementById("tokens"), {
    ...listAt("tokens"),
    make: async (wanted) => (await ask("POST", "/api/v1/tokens", {
        body: JSON.stringify(wanted), headers: { "Content-Type": "application/json" }, json: true,
    })).content.token,
});

const notices = noticeLines({
    read: async () => (await ask("GET", "/api/v1/notices", { json: true })).content,
    test: async (name) => (await ask("POST", `/api/v1/notices/${name}/test`, { json: true })).content,
    complain: (error) => showBanner(error instanceof HostError ? wordsFor(error) : error.message),
});

function wordsFor(error) {
    const known = { 0: "noAnswer", 401: "signInAgain", 403: "notAllowedHere", 413: "tooLarge", 503: "notReady" };
    const key = known[error.status];
    return key === undefined ? `${text("notSaved")} ${error.message}` : text(key);
}

// --- Showing ------------------------------------------------------------------------------------------------------------

function showMessage(title, detail = "") {
    page.message.hidden = title === "";
    page["message-title"].textContent = title;
    page["message-detail"].textContent = detail;
}

function showBanner(words, kind = "bad") {
    page.banner.hidden = words === "";
    page.banner.dataset.kind = kind;
    page.banner.textContent = words;
    if (words !== "") {
        page.banner.scrollIntoView({ block: "center" });
    }
}

function showForms() {
    page.form.hidden = false;
    page.bar.hidden = false;
    showMessage("");
    renderBar();
}

function showLanguages() {
    const { configured, choices } = host.language;
    page.language.replaceChildren(...choices.map(({ code, name }) => {
        const option = new Option(name, code);
        option.lang = code;
        return option;
    }));
    page.language.value = configured;
}

const languageChanged = () => page.language.value !== host.language.configured;
const isChanged = () => documents.every(({ form }) => form !== null) && (documents.some(({ form }) => form.changed) || languageChanged());

function renderBar() {
    const changed = isChanged();
    const state = busy ? "busy" : changed ? "changed" : "same";
    page.bar.dataset.state = state;
    // Not `disabled`: that would take the focus away from who has just pressed it.
    page.save.setAttribute("aria-disabled", String(busy || !changed));
    page.discard.disabled = busy || !changed;
    page.discard.hidden = !changed;
    const words = said ?? (busy ? text("saving") : changed ? text("unsaved") : text("allSaved"));
    if (page.state.textContent !== words) {
        page.state.textContent = words;
    }
}

function say(words) {
    said = words;
    renderBar();
}

function edited() {
    say(null);
}

async function readSecret(number) {
    try {
        return (await askWithToken("GET", `/settings/secret?number=${number}`, { headers: { "If-Match": component.version } })).content;
    } catch (error) {
        if (error.status === 412) {
            await mergeWithHost(component);
        } else {
            showBanner(wordsFor(error));
        }
        return null;
    }
}

// --- Loading and saving ---------------------------------------------------------------------------------------------------

async function load() {
    showMessage(text("loading"));
    try {
        await readState();
        setDocumentLanguage(host.language.active);
        showLanguages();
        for (const shown of documents) {
            const answer = await ask("GET", shown.address);
            shown.show(answer.content, answer.version);
        }
        showForms();
        phones.begin();
        tokens.begin();
        notices.begin();
        if (!host.written) {
            showBanner(text("notOnDisk"));
        }
    } catch (error) {
        showMessage(text("cannotLoad"), error instanceof HostError ? wordsFor(error) : error.message);
    }
}

// Somebody else has changed the settings since they were read here: shows theirs with the edits of this page on top.
// Returns false when nothing differs but the version, as behind a restart of the host.
async function mergeWithHost(shown) {
    const answer = await ask("GET", shown.address);
    if (answer.content === shown.source) {
        shown.version = answer.version;
        return false;
    }
    const changes = shown.form.changes();
    shown.show(answer.content, answer.version);
    const lost = shown.form.apply(changes);
    const gone = lost.length > 0 ? ` ${text("goneMeanwhile")} ${lost.join(", ")}.` : "";
    showBanner(text("conflict") + gone, "warn");
    say(null);
    return true;
}

// Returns false when somebody else's changes are shown in its place.
async function sendDocument(shown) {
    const send = () => askWithToken("PUT", shown.address, {
        body: shown.form.xml, headers: { "Content-Type": "text/xml; charset=utf-8", "If-Match": shown.version },
    });
    const sent = shown.form.fingerprint;
    let answer;
    try {
        answer = await send();
    } catch (error) {
        if (error.status !== 412) {
            throw error;
        }
        if (await mergeWithHost(shown)) {
            return false;
        }
        answer = await send();
    }
    shown.show(answer.content, answer.version);
    host.written = answer.written;
    if (!answer.written) {
        showBanner(text("notOnDisk"));
    } else if (answer.conflicts !== null) {
        // Changed at another server of the cluster at the same moment; an empty name is the address that phones are told.
        const names = answer.conflicts.split(",").map((name) => (name === "" ? text("label_host") : decodeURIComponent(name)));
        showBanner(text("changedElsewhere", names.join(", ")), "warn");
    } else if (shown.form.fingerprint !== sent) {
        showBanner(text("keptDifferently"), "warn");
    }
    return true;
}

// The host's own document lists the component's cameras: edits of theirs go on top of what has come and gone there.
async function followCameras() {
    const answer = await ask("GET", own.address);
    const changes = own.form.changes();
    own.show(answer.content, answer.version);
    own.form.apply(changes);
}

function showFaults(fields) {
    showBanner("");
    say(text("faults", fields.length));
    // Of two entries with one name, the one that was edited.
    const field = fields.find((other) => documents.some(({ form }) => form.isEdited(other))) ?? fields[0];
    documents.find(({ form }) => [...form.fields()].includes(field)).form.reveal(field);
}

async function save() {
    const faults = documents.flatMap(({ form }) => form.check());
    if (faults.length > 0) {
        showFaults(faults);
        return;
    }
    busy = true;
    showBanner("");
    say(null);
    let shown = component; // the one that is being sent
    try {
        for (shown of documents) {
            if (shown.form.changed) {
                if (!(await sendDocument(shown))) {
                    return;
                }
                if (shown === component) {
                    await followCameras();
                }
            }
        }
        const newLanguage = languageChanged();
        if (newLanguage) {
            await askWithToken("PUT", "/settings/language", {
                body: page.language.value, headers: { "Content-Type": "text/plain" },
            });
            host.language.configured = page.language.value;
            showLanguages();
        }
        const done = newLanguage && host.language.configured !== host.language.active ? "savedNextStart" : "saved";
        say(text(host.written ? done : "notYetOnDisk"));
    } catch (error) {
        const concerned = error instanceof HostError ? shown.form.showProblems(error.problems) : [];
        if (concerned.length > 0) {
            showFaults(concerned);
        } else {
            say(null);
            showBanner(error instanceof HostError ? wordsFor(error) : error.message);
        }
    } finally {
        busy = false;
        renderBar();
    }
}

function saveIfChanged() {
    if (!busy && isChanged()) {
        save();
    }
}

page.save.addEventListener("click", saveIfChanged);
page.form.addEventListener("submit", (event) => event.preventDefault());
page.form.addEventListener("keydown", (event) => {
    if (event.key === "Enter" && !event.isComposing && event.target.matches("input:not([type=search], [type=checkbox], #tokens *)")) {
        event.preventDefault();
        saveIfChanged();
    }
});
page.discard.addEventListener("click", () => {
    documents.forEach((shown) => shown.show(shown.source, shown.version));
    showLanguages();
    showBanner("");
    say(text("discarded"));
    page.title.focus();
});
page.language.addEventListener("change", edited);
addEventListener("beforeunload", (event) => {
    if (isChanged()) {
        event.preventDefault();
    }
});

translatePage();
document.title = `${text("settings")} – Morrowstream`;
load();
