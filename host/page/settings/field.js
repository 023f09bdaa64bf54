// One value of a settings document on the screen: its label, its control, and what is wrong with it. The document is
// the model: what is typed goes straight into it.

import { nodeText, ownText, problemOf, selectOne, setOwnText } from "./rules.js";
import { text } from "../shared/words.js";
import { documentText, hintOf, keptWords } from "./text.js";

let lastId = 0;

export function make(tag, properties = {}, ...children) {
    const element = Object.assign(document.createElement(tag), properties);
    element.append(...children);
    return element;
}

const labels = new WeakMap(); // of a document: texts by paths that lead to the same place from everywhere

// What an element calls itself: the text that its `displayname` points to, or its name in the document. A thousand
// entries have the same labels, and each search for one would go through the whole document.
export function labelOf(element) {
    const path = element.getAttribute("displayname");
    if (path === null) {
        return element.nodeName;
    }
    if (!path.startsWith("/")) {
        return nodeText(selectOne(path, element)) || element.nodeName;
    }
    const owner = element.ownerDocument;
    if (!labels.has(owner)) {
        labels.set(owner, new Map());
    }
    const known = labels.get(owner);
    if (!known.has(path)) {
        known.set(path, documentText(path, nodeText(selectOne(path, element)), owner));
    }
    return known.get(path) || element.nodeName;
}

// Without what XML cannot hold: control characters, and halves of characters.
export function storable(value) {
    return value.replace(/[\u0000-\u0008\u000B\u000C\u000E-\u001F\uFFFE\uFFFF]|\p{Surrogate}/gu, "");
}

// The constructor calls operations of the derived classes, so these have no private members.
export class Field {
    // `page` is told of edits (edited(field)) and fetches passwords (readSecret(number)).
    constructor(element, page) {
        this.element = element;
        this.page = page;
        this.base = ownText(element);
        this.id = `field-${(lastId += 1)}`;
        this.label = labelOf(element);
        this.problem = null;

        const hint = hintOf(element);
        this.hint = make("p", { className: "hint", id: `${this.id}-hint`, textContent: hint, hidden: hint === "" });
        this.error = make("p", { className: "problem", id: `${this.id}-problem`, hidden: true });
        // What the host would not take today, and keeps: it was there before the rule.
        const kept = element.getAttribute("kept");
        this.kept = make("p", { className: "kept", id: `${this.id}-kept`, textContent: kept && keptWords(kept) });
        this.control = this.makeControl();
        this.control.id = this.id;
        this.control.setAttribute("aria-describedby", `${this.error.id} ${this.kept.id} ${this.hint.id}`);
        this.control.addEventListener("input", () => this.edit());
        this.control.addEventListener("change", () => this.check());
        this.root = make(
            "div", { className: "field" },
            // The name in the document says what is meant where a language has no word yet.
            make(this.isGroup ? "p" : "label", {
                ...(this.isGroup ? { id: `${this.id}-name`, className: "field-name" } : { htmlFor: this.id }),
                textContent: this.label, title: element.nodeName,
            }),
            this.makeBox(), this.error, this.kept, this.hint,
        );
        this.root.dataset.name = element.nodeName;
        this.show();
        this.showKept();
    }

    // Several controls under one name.
    get isGroup() {
        return false;
    }

    makeBox() {
        return this.control;
    }

    // Brings the control to what the document holds.
    show() {
        this.control.value = ownText(this.element);
    }

    read() {
        setOwnText(this.element, storable(this.control.value));
    }

    edit() {
        this.read();
        // While it is wrong, each key may put it right; a new fault is told when the field is left.
        if (this.problem !== null) {
            this.check();
        }
        this.showKept();
        this.page.edited(this);
    }

    set value(value) {
        setOwnText(this.element, value);
        this.show();
        this.showKept();
        this.page.edited(this);
    }

    get value() {
        return ownText(this.element);
    }

    get changed() {
        return this.value !== this.base;
    }

    showKept() {
        this.kept.hidden = this.changed || this.kept.textContent === "";
    }

    // Says what is wrong beside the field. True when nothing is.
    check(seen) {
        const problem = problemOf(this.element, seen);
        this.showProblem(problem === null ? null : (problem.text ?? text(problem.key, ...(problem.values ?? []))));
        return problem === null;
    }

    showProblem(words) {
        this.problem = words;
        this.error.textContent = words ?? "";
        this.error.hidden = words === null;
        this.control.setAttribute("aria-invalid", String(words !== null));
    }
}

