// The phones that are cameras by a browser: which there are, and the button that ends that.

import { make } from "./fields.js";
import { setText } from "../shared/view.js";
import { text } from "../shared/words.js";

const LOOK_MS = 5000;

const momentText = (unixMs) => new Date(unixMs).toLocaleString(document.documentElement.lang, {
    dateStyle: "medium", timeStyle: "short",
});

export class PhoneList {
    #section;
    #list;
    #none;
    #host;
    #entries = new Map(); // by id

    // host: read() the list, revoke(id), say(words) to the person, complain(error)
    constructor(section, host) {
        this.#section = section;
        this.#list = section.querySelector("ul");
        this.#none = section.querySelector(".empty");
        this.#host = host;
    }

    begin() {
        this.#look();
        setInterval(() => document.hidden || this.#look(), LOOK_MS);
    }

    async #look() {
        let phones;
        try {
            phones = await this.#host.read();
        } catch {
            return; // what is shown may be old; whoever acts on it is told
        }
        this.#section.hidden = false;
        for (const [id, entry] of this.#entries) {
            if (!phones.some((phone) => phone.id === id)) {
                entry.root.remove();
                this.#entries.delete(id);
            }
        }
        for (const phone of phones) {
            this.#entryOf(phone).show(phone);
        }
        this.#none.hidden = phones.length > 0;
    }

    #entryOf(phone) {
        let entry = this.#entries.get(phone.id);
        if (entry === undefined) {
            entry = new Entry(phone, () => this.#revoke(phone));
            this.#entries.set(phone.id, entry);
            this.#list.append(entry.root);
        }
        return entry;
    }

    async #revoke(phone) {
        try {
            await this.#host.revoke(phone.id);
            this.#host.say(text("phoneRevoked", phone.camera));
        } catch (error) {
            if (error.status !== 404) { // gone meanwhile, which is as good
                this.#host.complain(error);
            }
        }
        await this.#look();
    }
}

class Entry {
    #contact = make("p", { className: "phone-contact" });

    constructor({ camera, since, agent }, revoke) {
        const button = make("button", { type: "button", ariaLabel: text("revokePhone", camera) }, text("revoke"));
        button.addEventListener("click", revoke);
        this.root = make("li", { className: "entry phone-entry" },
            make("div", { className: "phone-facts" },
                make("p", { className: "entry-name" }, camera),
                make("p", {}, agent),
                make("p", {}, text("phoneSince", momentText(since))),
                this.#contact),
            button);
    }

    show({ live, lastContact, address }) {
        this.root.toggleAttribute("data-live", live);
        const words = live ? text("sendsNow") : text("phoneContact", momentText(lastContact));
        setText(this.#contact, address ? `${words} · ${address}` : words);
    }
}
