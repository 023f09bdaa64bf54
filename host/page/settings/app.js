// The page of the settings: reads the document from the host, shows it as a form, and brings back what was changed.

import { SettingsForm } from "./form.js";
import { phoneList, tokenList } from "./phones.js";
import { text, translatePage } from "../shared/words.js";
import { setDocumentLanguage } from "./text.js";

const page = {};
for (const id of [
    "title", "message", "message-title", "message-detail", "banner", "form", "values", "lists", "language",
    "language-field", "trust-field", "trust-name", "fingerprint", "trust-again", "bar", "state", "discard", "save",
]) {
    page[id] = document.getElementById(id);
}

let host = null; // what /settings/state said: token, languages
let version = ""; // of the document in the form
let source = ""; // the document as it was read
let form = null;
let busy = false;
let said = null; // what the bar says until the next edit

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
                written: answer.headers.get("X-Settings-Written") !== "no" };
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

function showForm(content, newVersion) {
    const next = new SettingsForm(content, { edited, readSecret });
    const place = form?.placeOf(document.activeElement) ?? null;
    form = next;
    source = content;
    version = newVersion;
    for (const old of [...page.values.children]) {
        if (old !== page["language-field"]) {
            old.remove();
        }
    }
    page.values.prepend(...[...form.values.values()].map((field) => field.root));
    page.lists.replaceChildren(...form.lists.map((list) => list.root));
    page.form.hidden = false;
    page.bar.hidden = false;
    showMessage("");
    renderBar();
    if (place !== null) {
        form.fieldAt(place)?.control.focus();
    }
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
const isChanged = () => form !== null && (form.changed || languageChanged());

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
        return (await askWithToken("GET", `/settings/secret?number=${number}`, { headers: { "If-Match": version } })).content;
    } catch (error) {
        if (error.status === 412) {
            await mergeWithHost();
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
        const answer = await ask("GET", "/settings/document");
        showForm(answer.content, answer.version);
        phones.begin();
        tokens.begin();
        if (!host.written) {
            showBanner(text("notOnDisk"));
        }
    } catch (error) {
        showMessage(text("cannotLoad"), error instanceof HostError ? wordsFor(error) : error.message);
    }
}

// Somebody else has changed the settings since they were read here: shows theirs with the edits of this page on top.
// Returns false when nothing differs but the version, as behind a restart of the host.
async function mergeWithHost() {
    const answer = await ask("GET", "/settings/document");
    if (answer.content === source) {
        version = answer.version;
        return false;
    }
    const changes = form.changes();
    showForm(answer.content, answer.version);
    const lost = form.apply(changes);
    const gone = lost.length > 0 ? ` ${text("goneMeanwhile")} ${lost.join(", ")}.` : "";
    showBanner(text("conflict") + gone, "warn");
    say(null);
    return true;
}

async function sendDocument() {
    const send = () => askWithToken("PUT", "/settings/document", {
        body: form.xml, headers: { "Content-Type": "text/xml; charset=utf-8", "If-Match": version },
    });
    const sent = form.fingerprint;
    let answer;
    try {
        answer = await send();
    } catch (error) {
        if (error.status !== 412) {
            throw error;
        }
        if (await mergeWithHost()) {
            return false;
        }
        answer = await send();
    }
    showForm(answer.content, answer.version);
    host.written = answer.written;
    if (!answer.written) {
        showBanner(text("notOnDisk"));
    } else if (form.fingerprint !== sent) {
        showBanner(text("keptDifferently"), "warn");
    }
    return true;
}

function showFaults(fields) {
    showBanner("");
    say(text("faults", fields.length));
    // Of two entries with one name, the one that was edited.
    form.reveal(fields.find((field) => form.isEdited(field)) ?? fields[0]);
}

async function save() {
    const faults = form.check();
    if (faults.length > 0) {
        showFaults(faults);
        return;
    }
    busy = true;
    showBanner("");
    say(null);
    try {
        if (form.changed && !(await sendDocument())) {
            return;
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
        const concerned = error instanceof HostError ? form.showProblems(error.problems) : [];
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
    if (event.key === "Enter" && !event.isComposing && event.target.matches("input:not([type=search], #tokens *)")) {
        event.preventDefault();
        saveIfChanged();
    }
});
page.discard.addEventListener("click", () => {
    showForm(source, version);
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
