// A picture that fills the screen. Where a browser lets no page have the screen, as on an iPhone, it fills the window, and
// the bars of the page go.

export class FullScreen {
    #root; // has the class "full" meanwhile
    #stage;
    #button;

    constructor(button, stage, root) {
        this.#root = root;
        this.#stage = stage;
        this.#button = button;
        button.addEventListener("click", () => (this.isOn ? this.leave() : this.#enter()));
        document.addEventListener("fullscreenchange", () => {
            if (document.fullscreenElement === null) {
                this.#set(false);
            }
        });
        const escape = (event) => {
            if (this.isOn && (event.type === "cancel" || event.key === "Escape")) {
                event.preventDefault();
                this.leave();
            }
        };
        root.addEventListener("cancel", escape); // a dialog's
        root.addEventListener("keydown", escape);
    }

    get isOn() {
        return this.#root.classList.contains("full");
    }

    leave() {
        if (document.fullscreenElement !== null) {
            document.exitFullscreen().catch(() => {});
        }
        this.#set(false);
    }

    #enter() {
        this.#set(true);
        this.#stage.requestFullscreen?.({ navigationUI: "hide" }).catch(() => {}); // the window will do
    }

    #set(on) {
        this.#root.classList.toggle("full", on);
        this.#button.setAttribute("aria-pressed", `${on}`);
    }
}
