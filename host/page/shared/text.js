// How the page words what it knows: sizes, rates, ages, times of day, and the command that connects a phone.

import { text } from "./words.js";

const NONE = "–";
const DEMO_CAMERAS = ["yard", "gate", "spare"];

export function sizeText(width, height) {
    return width > 0 && height > 0 ? `${width} × ${height}` : NONE;
}

export function rateText(fps) {
    return fps === null ? NONE : text("fps", fps.toFixed(1));
}

export function agoText(seconds) {
    if (seconds === null) {
        return NONE;
    }
    return seconds < 1 ? text("justNow") : text("ago", spanText(seconds));
}

// Whole units only: an age that flickers in its decimals draws the eye and tells nothing.
export function spanText(seconds) {
    if (seconds < 60) {
        return text("seconds", Math.floor(seconds));
    }
    if (seconds < 3600) {
        return text("minutes", Math.floor(seconds / 60));
    }
    if (seconds < 86400) {
        return text("hours", Math.floor(seconds / 3600));
    }
    return text("days", Math.floor(seconds / 86400));
}

// The moment `seconds` ago, on the clock of this device.
export function timeText(seconds) {
    const moment = new Date(Date.now() - seconds * 1000);
    return seconds < 43200 ? moment.toLocaleTimeString(document.documentElement.lang) : moment.toLocaleString(document.documentElement.lang);
}

// A camera's name can hold anything, and the command is made to be pasted into a shell: a name that is more than plain
// characters is quoted, and one with control characters is written in escapes, so that pasting it runs nothing else.
function shellWord(word) {
    if (/^[\w.@%+:,/][\w.@%+:,/-]*$/u.test(word)) {
        return word;
    }
    if (/[\p{Cc}\p{Cf}\u2028\u2029]/u.test(word)) {
        const escaped = word.replace(/[\\'\p{Cc}\p{Cf}\u2028\u2029]/gu, (character) => {
            return `\\U${character.codePointAt(0).toString(16).padStart(8, "0")}`;
        });
        return `$'${escaped}'`;
    }
    return `'${word.replaceAll("'", "'\\''")}'`;
}

function serverAddress() {
    return location.port !== "" ? location.host : `${location.host}:${location.protocol === "https:" ? 443 : 80}`;
}

// The command in pieces that belong together on a line.
function phoneCommand(name, demo) {
    // The password of the demo's cameras is no secret; any other is not known here.
    const password = demo && DEMO_CAMERAS.includes(name) ? "demo" : "PASSWORD";
    return [
        "morrowstream-phone upload",
        `--server ${serverAddress()}`,
        `--login ${shellWord(name)}`,
        `--password ${password}`,
        "--pictures DIR",
    ];
}

export function setPhoneCommand(code, name, demo) {
    const pieces = phoneCommand(name, demo);
    if (code.textContent === pieces.join(" ")) {
        return;
    }
    code.replaceChildren();
    for (const piece of pieces) {
        const span = document.createElement("span");
        span.textContent = piece;
        code.append(...(code.hasChildNodes() ? [" "] : []), span);
    }
}

// navigator.clipboard exists on secure origins only, and a host in the local network is none.
export async function copyText(words) {
    if (navigator.clipboard !== undefined) {
        try {
            await navigator.clipboard.writeText(words);
            return true;
        } catch {
            // No permission: the old way may still do.
        }
    }
    const field = document.createElement("textarea");
    field.value = words;
    field.className = "offscreen";
    const parent = document.querySelector("dialog[open]") ?? document.body;
    const focused = document.activeElement;
    parent.append(field);
    field.select();
    const copied = document.execCommand("copy");
    field.remove();
    focused?.focus();
    return copied;
}
