// One value of the settings document on the screen: its label, its control, and what is wrong with it. The document is
// the model: what is typed goes straight into it.

import { choicesOf, nodeText, ownText, problemOf, selectOne, setOwnText } from "./rules.js";
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
        known.set(path, documentText(path, nodeText(selectOne(path, element))));
    }
    return known.get(path) || element.nodeName;
}

// Without what XML cannot hold: control characters, and halves of characters.
function storable(value) {
    return value.replace(/[\u0000-\u0008\u000B\u000C\u000E-\u001F\uFFFE\uFFFF]|\p{Surrogate}/gu, "");
}

// The constructor calls operations of the derived classes, so these have no private members.
class Field {
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
            make("label", { htmlFor: this.id, textContent: this.label, title: element.nodeName }),
            this.makeBox(), this.error, this.kept, this.hint,
        );
        this.root.dataset.name = element.nodeName;
        this.show();
        this.showKept();
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
        this.showProblem(problem === null ? null : (problem.text ?? text(problem.key)));
        return problem === null;
    }

    showProblem(words) {
        this.problem = words;
        this.error.textContent = words ?? "";
        this.error.hidden = words === null;
        this.control.setAttribute("aria-invalid", String(words !== null));
    }
}

class TextField extends Field {
    makeControl() {
        return make("input", { type: "text", autocomplete: "off", spellcheck: false, autocapitalize: "off" });
    }
}

// A value of a type that this page does not know is shown, and stays as it is.
class ForeignField extends TextField {
    makeControl() {
        return Object.assign(super.makeControl(), { readOnly: true });
    }
}

class ChoiceField extends Field {
    makeControl() {
        return make("select", {}, ...choicesOf(this.element).map((choice) => new Option(choice, choice)));
    }

    show() {
        const value = ownText(this.element);
        // A value that is not on offer any more is seen, and the check says so.
        if (![...this.control.options].some((option) => option.value === value)) {
            this.control.prepend(new Option(value, value));
        }
        this.control.value = value;
    }
}

// The document that the page gets has marks in place of passwords; one is fetched when somebody asks to see it.
// Typing replaces it.
class PasswordField extends Field {
    makeControl() {
        this.stored = this.element.getAttribute("stored"); // the number of the password; null when there is none
        this.mark = this.stored === null ? "" : ownText(this.element);
        this.secret = null; // once it was fetched
        return make("input", {
            type: "password", autocomplete: "new-password", spellcheck: false, autocapitalize: "off",
        });
    }

    makeBox() {
        this.reveal = make("button", { type: "button", className: "reveal", textContent: text("show") });
        this.reveal.setAttribute("aria-label", `${text("show")}: ${this.label}`);
        this.reveal.setAttribute("aria-pressed", "false");
        this.reveal.setAttribute("aria-controls", this.id);
        this.reveal.addEventListener("click", () => this.toggle());
        return make("div", { className: "password" }, this.control, this.reveal);
    }

    // Whether the password is still the one that the host holds.
    get untouched() {
        return this.stored !== null && this.element.hasAttribute("stored");
    }

    show() {
        this.control.value = this.untouched ? (this.secret ?? "") : ownText(this.element);
        this.control.placeholder = this.untouched && this.secret === null ? this.mark : "";
    }

    read() {
        const value = storable(this.control.value);
        if (this.stored !== null && value === (this.secret ?? "")) {
            this.element.setAttribute("stored", this.stored);
            setOwnText(this.element, this.mark);
        } else {
            this.element.removeAttribute("stored");
            setOwnText(this.element, value);
        }
        this.control.placeholder = this.untouched && this.secret === null ? this.mark : "";
    }

    set value(value) {
        this.element.removeAttribute("stored");
        super.value = value;
    }

    get value() {
        return super.value;
    }

    get changed() {
        return !this.untouched && (this.stored !== null || this.value !== this.base);
    }

    async toggle() {
        const visible = this.control.type === "text";
        if (!visible && this.untouched && this.secret === null) {
            this.reveal.disabled = true;
            const secret = await this.page.readSecret(this.stored);
            this.reveal.disabled = false;
            this.reveal.focus();
            if (secret === null || !this.untouched) {
                return;
            }
            this.secret = secret;
            this.show();
        }
        this.control.type = visible ? "password" : "text";
        this.reveal.textContent = text(visible ? "show" : "hide");
        this.reveal.setAttribute("aria-label", `${this.reveal.textContent}: ${this.label}`);
        this.reveal.setAttribute("aria-pressed", String(!visible));
    }
}

export function makeField(element, page) {
    if (element.getAttribute("type") !== "BSTR") {
        return new ForeignField(element, page);
    }
    if (element.hasAttribute("password")) {
        return new PasswordField(element, page);
    }
    return element.hasAttribute("lookup") ? new ChoiceField(element, page) : new TextField(element, page);
}
