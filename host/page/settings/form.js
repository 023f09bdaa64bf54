// The settings document as a form. What there is to edit is read from the document: an element with a `type` is a value,
// one that an `add` points to is a list with entries, everything else groups what stands in it.

import { labelOf, make } from "./field.js";
import { makeField } from "./fields.js";
import { choicesOf, nodeText, ownText, problemOf, selectOne, setOwnText } from "./rules.js";
import { isKnown, text } from "../shared/words.js";
import { hintOf } from "./text.js";

const FILTER_FROM = 12; // entries, from which on a list can be searched
// Of a long list, entries get their controls when they come close to the screen: a browser takes seconds for a thousand.
const AT_ONCE = 100;
// On a phone's screen the entries of a list of more than these are folded.
const FOLD_FROM = 4;
const SMALL_SCREEN = matchMedia("(max-width: 44rem)");
const CLOSE = "800px";

const isHidden = (element) => element.getAttribute("hidden") === "true";
const isValue = (element) => element.hasAttribute("type");

// The elements of all values below an element, by their path from it ("Name"); choices of a value are no values.
function valuesBelow(element, prefix = "", values = new Map()) {
    for (const child of element.children) {
        if (isHidden(child)) {
            continue;
        }
        if (isValue(child)) {
            let path = prefix + child.nodeName;
            for (let number = 2; values.has(path); number += 1) {
                path = `${prefix}${child.nodeName}[${number}]`;
            }
            values.set(path, child);
        } else {
            valuesBelow(child, `${prefix}${child.nodeName}/`, values);
        }
    }
    return values;
}

function makeFields(values, page) {
    return new Map([...values].map(([path, element]) => [path, makeField(element, page)]));
}

// An entry of a list, such as a camera.
class Entry {
    #fields = null; // by path, once they are needed

    constructor(list, element, added) {
        this.list = list;
        this.element = element;
        this.added = added;
        this.removed = false;
        this.key = list.keyOf(element); // by which it is found in another version of the document
        this.values = valuesBelow(element);

        this.unfolded = added; // by a person; counts on a small screen only
        this.caption = make("h3", { className: "entry-name" });
        this.fold = make("button", { type: "button", className: "fold" });
        this.fold.addEventListener("click", () => {
            this.unfolded = !this.unfolded;
            this.render();
        });
        this.badge = make("p", { className: "badge", hidden: true });
        this.remove = make("button", { type: "button", className: "quiet" });
        this.remove.addEventListener("click", () => list.toggle(this));
        this.remove.hidden = element.getAttribute("removable") !== "true";
        // A form of its own: browsers take two passwords in one form for a new one and its repetition.
        this.body = make("form", { className: "fields", noValidate: true, autocomplete: "off" });
        this.root = make(
            "li", { className: "entry" },
            make("div", { className: "entry-head" }, this.caption, this.badge, this.remove, this.fold), this.body,
        );
        this.render();
    }

    get fields() {
        if (this.#fields === null) {
            this.#fields = makeFields(this.values, this.list.form.page);
            this.#fields.forEach((field) => this.list.form.entryOf.set(field, this));
            this.body.append(...[...this.#fields.values()].map((field) => field.root));
        }
        return this.#fields;
    }

    // Without making any.
    get fieldsSoFar() {
        return this.#fields === null ? [] : [...this.#fields.values()];
    }

    get changed() {
        return this.fieldsSoFar.some((field) => field.changed);
    }

    get name() {
        const path = this.element.getAttribute("displayname");
        return (path === null ? this.element.nodeName : nodeText(selectOne(path, this.element))) || text("unnamed");
    }

    render() {
        const state = this.removed ? "removed" : this.added ? "added" : this.changed ? "changed" : "same";
        this.caption.textContent = this.name;
        this.root.dataset.state = state;
        this.root.dataset.key = this.key;
        this.badge.hidden = state === "same";
        this.badge.textContent = state === "same" ? "" : text(state);
        this.remove.textContent = text(this.removed ? "undo" : "remove");
        this.remove.setAttribute("aria-label", `${this.remove.textContent}: ${this.name}`);
        const folds = SMALL_SCREEN.matches && this.list.entries.length >= FOLD_FROM && !this.removed;
        this.body.hidden = this.removed || (folds && !this.unfolded);
        this.fold.hidden = !folds;
        this.fold.setAttribute("aria-expanded", String(!this.body.hidden));
        this.fold.setAttribute("aria-label", this.name);
    }
}

class List {
    constructor(form, element, templates) {
        this.form = form;
        this.element = element;
        this.templates = templates; // elements with `add`
        this.entries = [];

        this.count = make("p", { className: "count" });
        this.filter = make("input", { type: "search", className: "filter", placeholder: text("search") });
        this.filter.setAttribute("aria-label", text("search"));
        this.filter.addEventListener("input", () => this.render());
        this.buttons = templates.map((template) => {
            const button = make("button", { type: "button", className: "add", textContent: labelOf(template) });
            button.addEventListener("click", () => this.add(template));
            return button;
        });
        this.items = make("ul", { className: "entries" });
        this.empty = make("p", { className: "empty", textContent: text("nothingYet") });
        const title = make("h2", { textContent: labelOf(element) });
        title.id = `list-${element.nodeName}`;
        const hint = hintOf(element);
        this.root = make(
            "section", { className: "panel" },
            make("div", { className: "panel-head" }, title, this.count, this.filter, ...this.buttons),
            make("p", { className: "hint", textContent: hint, hidden: hint === "" }), this.empty, this.items,
        );
        this.root.setAttribute("aria-labelledby", title.id);
        SMALL_SCREEN.addEventListener("change", () => this.entries.forEach((entry) => entry.render()));
        for (const child of element.children) {
            if (!isHidden(child) && !isValue(child)) {
                this.#enter(new Entry(this, child, false));
            }
        }
        this.entries.forEach((entry) => entry.render()); // how many there are decides whether they fold
        this.render();
    }

    keyOf(element) {
        const path = this.element.getAttribute("KeyXPath") ?? element.getAttribute("displayname");
        return path === null ? "" : nodeText(selectOne(path, element));
    }

    #enter(entry) {
        this.entries.push(entry);
        this.items.append(entry.root);
        if (this.entries.length <= AT_ONCE) {
            void entry.fields;
        } else {
            this.observer ??= new IntersectionObserver((sightings) => this.#sight(sightings), { rootMargin: CLOSE });
            this.observer.observe(entry.root);
        }
    }

    #sight(sightings) {
        for (const { isIntersecting, target } of sightings) {
            if (isIntersecting) {
                this.observer.unobserve(target);
                void this.entries.find((entry) => entry.root === target)?.fields;
            }
        }
    }

    get changed() {
        return this.entries.some((entry) => entry.added || entry.removed || entry.changed);
    }

    // A copy of what stands in the template, without its stand-in values: "?" is there to be replaced.
    make(template) {
        const pattern = [...template.children].find((child) => !isHidden(child) && !isValue(child));
        if (pattern === undefined) {
            return null;
        }
        const element = pattern.cloneNode(true);
        this.element.append(element);
        const entry = new Entry(this, element, true);
        for (const value of entry.values.values()) {
            const present = ownText(value);
            if (present === "" || present === "?") {
                setOwnText(value, choicesOf(value)?.[0] ?? "");
            }
        }
        entry.key = "";
        this.#enter(entry);
        return entry;
    }

    add(template) {
        this.filter.value = "";
        const entry = this.make(template);
        if (entry === null) {
            return;
        }
        entry.render();
        this.render();
        this.form.page.edited(null);
        entry.root.scrollIntoView({ block: "nearest" });
        [...entry.fields.values()][0]?.control.focus();
    }

    // Removes an entry, or takes that back. What was never saved just goes.
    toggle(entry) {
        if (entry.added) {
            entry.element.remove();
            entry.root.remove();
            this.entries.splice(this.entries.indexOf(entry), 1);
            (this.buttons[0] ?? this.items).focus();
        } else if (entry.removed) {
            entry.removed = false;
            const later = this.entries.slice(this.entries.indexOf(entry) + 1).find((other) => !other.removed);
            this.element.insertBefore(entry.element, later?.element ?? null);
        } else {
            entry.removed = true;
            entry.element.remove();
        }
        entry.render();
        this.render();
        this.form.page.edited(null);
    }

    render() {
        const wanted = this.filter.value.toLocaleLowerCase();
        for (const entry of this.entries) {
            entry.root.hidden = wanted !== "" && !entry.name.toLocaleLowerCase().includes(wanted);
        }
        const present = this.entries.filter((entry) => !entry.removed).length;
        this.count.textContent = String(present);
        this.empty.hidden = this.entries.length > 0;
        this.filter.hidden = this.entries.length < FILTER_FROM && wanted === "";
    }
}

export class SettingsForm {
    // `page` is told of edits: edited(field), with null for a whole entry; and fetches passwords: readSecret(number).
    constructor(xml, page) {
        this.document = new DOMParser().parseFromString(xml, "application/xml");
        if (this.document.querySelector("parsererror") !== null) {
            throw new Error("the settings are no document");
        }
        const root = this.document.documentElement;
        this.page = { ...page, edited: (field) => this.#edited(field) };
        this.report = page.edited;

        const children = [...root.children].filter((child) => !isHidden(child));
        const templates = new Map(); // by the list that they add to
        for (const template of children.filter((child) => child.hasAttribute("add"))) {
            const list = selectOne(template.getAttribute("add"), template);
            templates.set(list, [...(templates.get(list) ?? []), template]);
        }
        const values = new Map();
        this.lists = [];
        this.entryOf = new WeakMap(); // the entry of a field that stands in a list
        for (const child of children.filter((other) => !other.hasAttribute("add"))) {
            if (isValue(child)) {
                values.set(child.nodeName, child);
            } else if (templates.has(child) || child.hasAttribute("KeyXPath")) {
                this.lists.push(new List(this, child, templates.get(child) ?? []));
            } else {
                valuesBelow(child, `${child.nodeName}/`, values);
            }
        }
        this.values = makeFields(values, this.page); // fields outside of lists, by their path from the root
    }

    // Those fields, by the element below the root that groups them: its label where it has one, or "".
    get groups() {
        const groups = new Map();
        for (const [path, field] of this.values) {
            const group = selectOne(path.split("/")[0], this.document.documentElement);
            const label = group.hasAttribute("displayname") && !isValue(group) ? labelOf(group) : "";
            groups.set(label, [...(groups.get(label) ?? []), field]);
        }
        return groups;
    }

    #edited(field) {
        // What was wrong may have been put right elsewhere: a name given twice, for one.
        for (const other of this.fields()) {
            if (other !== field && other.problem !== null) {
                other.check();
            }
        }
        if (field !== null) {
            this.entryOf.get(field)?.render();
        }
        this.report(field);
    }

    *#present() {
        for (const list of this.lists) {
            yield* list.entries.filter((entry) => !entry.removed);
        }
    }

    // Those that have been made so far.
    *fields() {
        yield* this.values.values();
        for (const entry of this.#present()) {
            yield* entry.fieldsSoFar;
        }
    }

    get changed() {
        return [...this.values.values()].some((field) => field.changed) || this.lists.some((list) => list.changed);
    }

    get xml() {
        return new XMLSerializer().serializeToString(this.document);
    }

    // What is to be seen of the values, to tell whether another form holds the same. Of passwords only whether there is
    // one: those that were sent come back as marks.
    get fingerprint() {
        const seen = (values) => [...values].map(([path, element]) => {
            return [path, element.hasAttribute("password") ? ownText(element) !== "" : ownText(element)];
        });
        const lists = this.lists.map((list) => {
            const present = list.entries.filter((entry) => !entry.removed);
            return present.map((entry) => JSON.stringify(seen(entry.values))).sort();
        });
        return JSON.stringify([seen([...this.values].map(([path, field]) => [path, field.element])), lists]);
    }

    // Where a control stands, in words that another form understands.
    placeOf(control) {
        const field = [...this.fields()].find((other) => other.control === control);
        const entry = field === undefined ? undefined : this.entryOf.get(field);
        const fields = entry?.fields ?? this.values;
        const path = [...fields].find(([, other]) => other === field)?.[0];
        return path === undefined ? null : { list: entry?.list.element.nodeName, name: entry?.name, path };
    }

    fieldAt({ list, name, path }) {
        if (list === undefined) {
            return this.values.get(path);
        }
        const entries = this.lists.find((other) => other.element.nodeName === list)?.entries ?? [];
        return entries.find((entry) => entry.name === name)?.fields.get(path);
    }

    // Checks every value; returns the fields that have something wrong.
    check() {
        const seen = new Map();
        for (const entry of this.#present()) {
            if (entry.fieldsSoFar.length === 0 && [...entry.values.values()].some((value) => problemOf(value, seen))) {
                void entry.fields;
            }
        }
        return [...this.fields()].filter((field) => !field.check(seen));
    }

    // Shows what the host found wrong: a path, a key of the page's texts, and words for a page without it. Returns the fields concerned.
    showProblems(problems) {
        const elements = problems.map(({ path }) => selectOne(path, this.document.documentElement));
        for (const entry of this.#present()) {
            if ([...entry.values.values()].some((value) => elements.includes(value))) {
                void entry.fields;
            }
        }
        const byElement = new Map([...this.fields()].map((field) => [field.element, field]));
        const concerned = [];
        for (const [index, { key, text: words }] of problems.entries()) {
            const field = byElement.get(elements[index]);
            if (field !== undefined) {
                if (field.check()) { // the page did not see it by itself
                    field.showProblem(isKnown(key) ? text(key) : words);
                }
                concerned.push(field);
            }
        }
        return concerned;
    }

    isEdited(field) {
        return field.changed || this.entryOf.get(field)?.added === true;
    }

    reveal(field) {
        for (const list of this.lists) {
            if (this.entryOf.get(field)?.list === list && list.filter.value !== "") {
                list.filter.value = "";
                list.render();
            }
        }
        const entry = this.entryOf.get(field);
        if (entry !== undefined) {
            entry.unfolded = true;
            entry.render();
        }
        field.control.focus();
        field.root.scrollIntoView({ block: "center" });
    }

    // --- Carrying edits over to another version of the document ---------------------------------------------------------

    // Everything that differs from the document as it was read, in words that another form understands.
    changes() {
        const changed = (fields) => [...fields].filter(([, field]) => field.changed);
        const found = [];
        for (const [path, field] of changed(this.values)) {
            found.push({ what: "value", path, value: field.value, base: field.base });
        }
        for (const list of this.lists) {
            for (const entry of list.entries) {
                const fields = entry.added ? [...entry.fields] : entry.changed ? changed(entry.fields) : [];
                if (entry.added || entry.removed || fields.length > 0) {
                    found.push({
                        what: entry.added ? "added" : entry.removed ? "removed" : "changed",
                        list: list.element.nodeName, template: list.templates.findIndex((t) => t.children.length > 0),
                        key: entry.key, name: entry.name,
                        fields: fields.map(([path, field]) => ({ path, value: field.value, base: field.base })),
                    });
                }
            }
        }
        return found;
    }

    // Makes those changes here. Returns what could not be carried over, as names of entries that are gone.
    apply(changes) {
        const lost = [];
        for (const change of changes) {
            if (change.what === "value") {
                this.#set(this.values.get(change.path), change);
                continue;
            }
            const list = this.lists.find((other) => other.element.nodeName === change.list);
            let entry = list?.entries.find((other) => !other.added && other.key === change.key);
            if (change.what === "added") {
                entry = list?.templates[change.template] && list.make(list.templates[change.template]);
            }
            if (!entry) {
                if (change.what !== "removed") {
                    lost.push(change.name);
                }
                continue;
            }
            if (change.what === "removed") {
                list.toggle(entry);
            }
            for (const field of change.fields) {
                this.#set(entry.fields.get(field.path), field);
            }
            entry.render();
            list.render();
        }
        return lost;
    }

    #set(field, { value }) {
        if (field !== undefined) {
            field.value = value;
        }
    }
}
