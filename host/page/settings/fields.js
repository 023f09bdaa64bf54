// The kinds of values, by the types that a settings document has: what each is shown and edited with.

import { Field, labelOf, make, storable } from "./field.js";
import { MaskField } from "./mask.js";
import { choiceElements, ownText, setOwnText } from "./rules.js";
import { text } from "../shared/words.js";

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

// What a choice is called; without a name of its own it is its value.
function choiceLabel(choice) {
    return choice.hasAttribute("displayname") ? labelOf(choice) : ownText(choice);
}

class NumberField extends TextField {
    makeControl() {
        return Object.assign(super.makeControl(), { inputMode: "numeric", className: "number" });
    }

    read() {
        setOwnText(this.element, this.control.value.trim());
    }
}

class YesNoField extends Field {
    makeControl() {
        return make("input", { type: "checkbox" });
    }

    show() {
        this.control.checked = ownText(this.element) === "yes";
    }

    read() {
        setOwnText(this.element, this.control.checked ? "yes" : "no");
    }
}

// Any of the choices; their order is the document's.
class SetField extends Field {
    get isGroup() {
        return true;
    }

    makeControl() {
        this.boxes = choiceElements(this.element).map((choice) => make("input", { type: "checkbox", value: ownText(choice) }));
        const labels = choiceElements(this.element).map((choice, index) => {
            return make("label", { className: "choice" }, this.boxes[index], choiceLabel(choice));
        });
        const group = make("div", { className: "choices" }, ...labels);
        group.setAttribute("role", "group");
        group.setAttribute("aria-labelledby", `${this.id}-name`);
        // `focus` leads to the first of them.
        group.focus = () => this.boxes[0]?.focus();
        return group;
    }

    show() {
        const words = ownText(this.element).split(" ");
        for (const box of this.boxes) {
            box.checked = words.includes(box.value);
        }
    }

    read() {
        setOwnText(this.element, this.boxes.filter((box) => box.checked).map((box) => box.value).join(" "));
    }
}

class ChoiceField extends Field {
    makeControl() {
        const choices = choiceElements(this.element).map((choice) => new Option(choiceLabel(choice), ownText(choice)));
        const select = make("select", {}, ...choices);
        // What fills in forms by itself tells of a choice in this way alone.
        select.addEventListener("change", () => this.edit());
        return select;
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
        // One that never comes out again can be replaced alone.
        this.reveal.hidden = this.element.hasAttribute("sealed");
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

const KINDS = { number: NumberField, yesno: YesNoField, set: SetField, mask: MaskField };

export function makeField(element, page) {
    const type = element.getAttribute("type");
    if (type !== "BSTR") {
        return new (Object.hasOwn(KINDS, type) ? KINDS[type] : ForeignField)(element, page);
    }
    if (element.hasAttribute("password")) {
        return new PasswordField(element, page);
    }
    return element.hasAttribute("lookup") ? new ChoiceField(element, page) : new TextField(element, page);
}
