// What lives in the server beside its settings: the phones that are cameras by a browser, and the tokens of programs.
// Which there are, and the button that ends each.

import { make } from "./field.js";
import { copyText } from "../shared/text.js";
import { setText } from "../shared/view.js";
import { text } from "../shared/words.js";

const LOOK_MS = 5000;

const momentText = (moment) => new Date(moment).toLocaleString(document.documentElement.lang, {
    dateStyle: "medium", timeStyle: "short",
});

class LiveList {
    #section;
    #list;
    #none;
    #host;
    #entryOf;
    #entries = new Map(); // by id

    // host: read() the list, revoke(id), say(words) to the person, complain(error)
    // entryOf: makes the entry of an item, with a button that revokes it
    constructor(section, host, entryOf) {
        this.#section = section;
        this.#list = section.querySelector("ul");
        this.#none = section.querySelector(".empty");
        this.#host = host;
        this.#entryOf = entryOf;
    }

    begin() {
        this.look();
        setInterval(() => document.hidden || this.look(), LOOK_MS);
    }

    async look() {
        let items;
        try {
            items = await this.#host.read();
        } catch {
            return; // what is shown may be old; whoever acts on it is told
        }
        this.#section.hidden = false;
        for (const [id, entry] of this.#entries) {
            if (!items.some((item) => item.id === id)) {
                entry.root.remove();
                this.#entries.delete(id);
            }
        }
        for (const item of items) {
            this.#shown(item).show(item);
        }
        this.#none.hidden = items.length > 0;
    }

    #shown(item) {
        let entry = this.#entries.get(item.id);
        if (entry === undefined) {
            entry = this.#entryOf(item, (name) => this.#revoke(item.id, name));
            this.#entries.set(item.id, entry);
            this.#list.append(entry.root);
        }
        return entry;
    }

    async #revoke(id, name) {
        try {
            await this.#host.revoke(id);
            this.#host.say(text("phoneRevoked", name));
        } catch (error) {
            if (error.status !== 404) { // gone meanwhile, which is as good
                this.#host.complain(error);
            }
        }
        await this.look();
    }
}

// A name, lines below it and the button; `last` is the line that changes.
function entryRoot(name, lines, last, label, revoke) {
    const button = make("button", { type: "button", ariaLabel: label }, text("revoke"));
    button.addEventListener("click", () => revoke(name));
    return make("li", { className: "entry phone-entry" },
        make("div", { className: "phone-facts" },
            make("p", { className: "entry-name" }, name), ...lines.map((line) => make("p", {}, line)), last),
        button);
}

class PhoneEntry {
    #contact = make("p", { className: "phone-contact" });

    constructor({ camera, since, agent }, revoke) {
        this.root = entryRoot(camera, [agent, text("phoneSince", momentText(since))], this.#contact,
            text("revokePhone", camera), revoke);
    }

    show({ live, lastContact, address }) {
        this.root.toggleAttribute("data-live", live);
        const words = live ? text("sendsNow") : text("phoneContact", momentText(lastContact));
        setText(this.#contact, address ? `${words} · ${address}` : words);
    }
}

class TokenEntry {
    #used = make("p");

    constructor({ name, login, scope, made }, revoke) {
        const may = scope === "all" ? text("scopeAll") : text("scopeRead");
        this.root = entryRoot(name, [`${login} · ${may}`, text("phoneSince", momentText(made))], this.#used,
            text("revokeToken", name), revoke);
    }

    show({ used }) {
        setText(this.#used, text("tokenUsed", momentText(used)));
    }
}

export function phoneList(section, host) {
    return new LiveList(section, host, (item, revoke) => new PhoneEntry(item, revoke));
}

// host also has make({ name, scope }), which returns the token.
export function tokenList(section, host) {
    const list = new LiveList(section, host, (item, revoke) => new TokenEntry(item, revoke));
    const [form, made, once] = ["form", ".token-made", ".token-made output"].map((what) => section.querySelector(what));
    const copy = made.querySelector("button");
    form.addEventListener("submit", async (event) => {
        event.preventDefault();
        const [name, scope] = ["name", "scope"].map((field) => form.elements[field].value.trim());
        if (name === "") {
            form.elements.name.focus();
            return;
        }
        try {
            setText(once, await host.make({ name, scope }));
            setText(copy, text("copy"));
            made.hidden = false;
            form.reset();
        } catch (error) {
            host.complain(error);
        }
        await list.look();
    });
    copy.addEventListener("click", async () => {
        setText(copy, await copyText(once.textContent) ? text("copied") : text("notCopied"));
    });
    return list;
}
