// A black screen over the page, which on many phones takes no power, while the camera goes on.

import { setHidden } from "../shared/view.js";

const cover = document.getElementById("dark-screen");
const behind = document.querySelector("main");

export function darken() {
    setHidden(cover, false);
    behind.inert = true;
    cover.focus();
    // Not everywhere, and not needed.
    document.documentElement.requestFullscreen?.().catch(() => {});
}

export function lighten() {
    if (cover.hidden) {
        return;
    }
    setHidden(cover, true);
    behind.inert = false;
    if (document.fullscreenElement) {
        document.exitFullscreen().catch(() => {});
    }
    document.getElementById("dark").focus();
}

cover.addEventListener("click", lighten);
addEventListener("keydown", (event) => event.key === "Escape" && lighten());
