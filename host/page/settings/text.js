// What the page of the settings says of elements of the document.

import { isKnown, text } from "../shared/words.js";

// What an element of the document is for, where its label does not say it.
const HINTS = {
    host: "hostHint", cams: "camsHint",
    phonesWatchAll: "phonesWatchAllHint", kinds: "noticeKindsHint", address: "webhookHint", secret: "webhookSecretHint",
    server: "mqttHint", cameras: "camerasRecordedHint", mask: "maskHint",
};

let componentSpeaks = ""; // the language of the component's documents

export function setDocumentLanguage(language) {
    componentSpeaks = language;
}

// Which a document has for its own texts: it may say so.
function languageOf(tree) {
    return tree.documentElement.getElementsByTagName("local")[0]?.getAttribute("lang") ?? componentSpeaks;
}

// A text that the document has at a path: "?" stands for one that nobody has translated yet, and for a reader of another
// language the page has words of its own.
export function documentText(path, found, tree) {
    const key = `label_${path.startsWith("//local/@") ? path.slice(9) : ""}`;
    const speaks = languageOf(tree) === document.documentElement.lang;
    return isKnown(key) && (found === "?" || !speaks) ? text(key) : found;
}

// Of a value that is kept although the host would not take it today. `key` says why.
export function keptWords(key) {
    return isKnown(key) ? `${text("keptAsItIs")} ${text(key)}` : text("keptAsItIs");
}

export function hintOf(element) {
    const key = HINTS[element.nodeName];
    return key === undefined ? "" : text(key);
}
