// What the page of the settings says of elements of the document.

import { isKnown, text } from "../shared/words.js";

// What an element of the document is for, where its label does not say it.
const HINTS = { host: "hostHint", cams: "camsHint" };

let documentSpeaks = true; // the language of this page

// language: the one that the document's own texts are in.
export function setDocumentLanguage(language) {
    documentSpeaks = language === document.documentElement.lang;
}

// A text that the document has at a path: "?" stands for one that nobody has translated yet, and for a reader of another
// language the page has words of its own for the common ones.
export function documentText(path, found) {
    const key = `label_${path.startsWith("//local/@") ? path.slice(9) : ""}`;
    return isKnown(key) && (found === "?" || !documentSpeaks) ? text(key) : found;
}

// Of a value that is kept although the host would not take it today. `key` says why.
export function keptWords(key) {
    return isKnown(key) ? `${text("keptAsItIs")} ${text(key)}` : text("keptAsItIs");
}

export function hintOf(element) {
    const key = HINTS[element.nodeName];
    return key === undefined ? "" : text(key);
}
