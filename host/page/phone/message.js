// The card that says in plain words what keeps this phone from being a camera, and what to do.

import { copyText } from "../shared/text.js";
import { setHidden, setText } from "../shared/view.js";
import { text } from "../shared/words.js";

const COPIED_MS = 2000;

// A message has the key of its title, and of the text below that; most of both are named after it.
const MESSAGES = {
    ...Object.fromEntries(
        [
            "noPermission", "cameraBusy", "noDevice", "notSecure", "insideApp", "oldBrowser", "codeUsed",
            "wrongPassword", "tooManyTries", "replaced",
        ].map((key) => [key, { title: key, detail: `${key}Detail` }])),
    silent: { title: "noAnswerTitle", detail: "silentDetail" },
    gone: { title: "noLongerCamera", detail: "noLongerCameraDetail" },
};

const [card, title, detail, copy, secure] = ["message", "message-title", "message-detail", "copy", "secure"]
    .map((id) => document.getElementById(id));

// key: one of the above.
export function showMessage(key) {
    setText(title, text(MESSAGES[key].title));
    setText(detail, text(MESSAGES[key].detail));
    setHidden(copy, key !== "insideApp");
    setHidden(secure, key !== "notSecure");
    secure.href = `https://${location.host}${location.pathname}${location.hash}`;
    setHidden(card, false);
}

export function hideMessage() {
    setHidden(card, true);
}

// With the code in it, while that is not used up.
copy.addEventListener("click", async () => {
    setText(copy, text((await copyText(location.href)) ? "copied" : "notCopied"));
    setTimeout(() => setText(copy, text("copyAddress")), COPIED_MS);
});
