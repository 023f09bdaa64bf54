// The rules that a settings document carries for its own values, and the small language that they are written in:
// SelectOne(path).xml, texts in quotes, numbers, comparisons, !, && and ||. A rule is parsed, never run as a script.

import { documentText } from "./text.js";

const TOKEN = /\s*(?:(\|\||&&|==|!=|<=|>=|[<>!().])|("[^"]*"|'[^']*')|(\d+(?:\.\d+)?)|([A-Za-z_]\w*)|($))/y;
const LONGEST_RULE = 2000; // characters; keeps the depth of a rule within bounds as well

// --- Nodes and their values -------------------------------------------------------------------------------------------

function evaluate(path, node, type) {
    const owner = node.ownerDocument;
    return owner.evaluate(path, node, (prefix) => owner.documentElement.lookupNamespaceURI(prefix), type, null);
}

// The first node, or null; an XPath that makes no sense finds nothing.
export function selectOne(path, node) {
    try {
        return evaluate(path, node, XPathResult.FIRST_ORDERED_NODE_TYPE).singleNodeValue;
    } catch {
        return null;
    }
}

export function selectAll(path, node) {
    const nodes = [];
    try {
        const found = evaluate(path, node, XPathResult.ORDERED_NODE_SNAPSHOT_TYPE);
        for (let i = 0; i < found.snapshotLength; i += 1) {
            nodes.push(found.snapshotItem(i));
        }
    } catch {
        // As above.
    }
    return nodes;
}

// The value of an element is its own text, not its children's: an element with choices has both.
export function ownText(element) {
    let text = "";
    for (const node of element.childNodes) {
        if (node.nodeType === Node.TEXT_NODE || node.nodeType === Node.CDATA_SECTION_NODE) {
            text += node.data;
        }
    }
    return element.childElementCount > 0 ? text.trim() : text;
}

export function setOwnText(element, text) {
    for (const node of [...element.childNodes]) {
        if (node.nodeType === Node.TEXT_NODE || node.nodeType === Node.CDATA_SECTION_NODE) {
            node.remove();
        }
    }
    if (text !== "") {
        element.prepend(element.ownerDocument.createTextNode(text));
    }
}

export function nodeText(node) {
    return node === null ? "" : node.nodeType === Node.ELEMENT_NODE ? ownText(node) : (node.nodeValue ?? "");
}

const serializer = new XMLSerializer();

function nodeXml(node) {
    if (node === null) {
        return ""; // what is not there is as good as empty
    }
    if (node.nodeType === Node.ATTRIBUTE_NODE) {
        return `${node.name}="${node.value}"`;
    }
    return serializer.serializeToString(node);
}

// --- The language -----------------------------------------------------------------------------------------------------

function tokenize(text) {
    const tokens = [];
    TOKEN.lastIndex = 0;
    for (;;) {
        const at = TOKEN.lastIndex;
        const match = TOKEN.exec(text);
        if (match === null) {
            throw new SyntaxError(`no rule at character ${at + 1}: ${text}`);
        }
        const [, operator, quoted, number, name] = match;
        if (operator !== undefined) {
            tokens.push({ kind: "operator", text: operator });
        } else if (quoted !== undefined) {
            tokens.push({ kind: "text", value: quoted.slice(1, -1) });
        } else if (number !== undefined) {
            tokens.push({ kind: "text", value: number });
        } else if (name !== undefined) {
            tokens.push({ kind: "name", text: name });
        } else {
            tokens.push({ kind: "end" });
            return tokens;
        }
    }
}

// Two numbers are compared as numbers, everything else as text.
function compare(operator, a, b) {
    if (operator === "==" || operator === "!=") {
        return (String(a) === String(b)) === (operator === "==");
    }
    const numeric = [a, b].every((value) => String(value).trim() !== "" && Number.isFinite(Number(value)));
    const [left, right] = numeric ? [Number(a), Number(b)] : [String(a), String(b)];
    return { "<": left < right, "<=": left <= right, ">": left > right, ">=": left >= right }[operator];
}

const COMPARISONS = ["==", "!=", "<", "<=", ">", ">="];
const PROPERTIES = { xml: nodeXml, text: nodeText };

// Each operation of the parser returns a function from the element that the rule belongs to.
class Parser {
    #tokens;
    #at = 0;

    constructor(text) {
        if (text.length > LONGEST_RULE) {
            throw new SyntaxError("this rule is too long");
        }
        this.#tokens = tokenize(text);
    }

    // A rule may begin with a comparison; what is compared is then the value of the element.
    rule() {
        const rule = this.#peek(...COMPARISONS) ? this.#comparison(ownText) : this.#or();
        if (this.#tokens[this.#at].kind !== "end") {
            throw new SyntaxError("the rule goes on where it should end");
        }
        return rule;
    }

    #peek(...operators) {
        const token = this.#tokens[this.#at];
        return token.kind === "operator" && operators.includes(token.text);
    }

    #take(...operators) {
        return this.#peek(...operators) ? this.#tokens[this.#at++].text : null;
    }

    #need(operator) {
        if (this.#take(operator) === null) {
            throw new SyntaxError(`${operator} is missing`);
        }
    }

    #needKind(kind) {
        const token = this.#tokens[this.#at++];
        if (token?.kind !== kind) {
            throw new SyntaxError(`a ${kind} is missing`);
        }
        return token;
    }

    #or() {
        let left = this.#and();
        while (this.#take("||") !== null) {
            const [first, second] = [left, this.#and()];
            left = (element) => first(element) || second(element);
        }
        return left;
    }

    #and() {
        let left = this.#comparison(this.#unary());
        while (this.#take("&&") !== null) {
            const [first, second] = [left, this.#comparison(this.#unary())];
            left = (element) => first(element) && second(element);
        }
        return left;
    }

    #comparison(left) {
        const operator = this.#take(...COMPARISONS);
        if (operator === null) {
            return left;
        }
        const right = this.#unary();
        return (element) => compare(operator, left(element), right(element));
    }

    #unary() {
        if (this.#take("!") !== null) {
            const operand = this.#unary();
            return (element) => !operand(element);
        }
        if (this.#take("(") !== null) {
            const inner = this.#or();
            this.#need(")");
            return inner;
        }
        if (this.#tokens[this.#at].kind === "text") {
            const { value } = this.#needKind("text");
            return () => value;
        }
        return this.#selection();
    }

    #selection() {
        if (this.#needKind("name").text !== "SelectOne") {
            throw new SyntaxError("SelectOne is the only operation");
        }
        this.#need("(");
        const path = this.#needKind("text").value;
        this.#need(")");
        this.#need(".");
        const property = this.#needKind("name").text;
        if (!Object.hasOwn(PROPERTIES, property)) {
            throw new SyntaxError(`a node has no ${property}`);
        }
        return (element) => PROPERTIES[property](selectOne(path, element));
    }
}

const compiled = new Map(); // by text: a rule, or null for one that cannot be understood

// Whether `element` fulfils the rule. One that this page does not understand holds nobody up: what may be stored is for
// the server to say.
export function holds(rule, element) {
    if (!compiled.has(rule)) {
        let parsed = null;
        try {
            parsed = new Parser(rule).rule();
        } catch (error) {
            console.warn(`A rule of the settings is not understood: ${error.message}`);
        }
        compiled.set(rule, parsed);
    }
    const parsed = compiled.get(rule);
    return parsed === null || Boolean(parsed(element));
}

// --- What can be wrong with a value -----------------------------------------------------------------------------------

// The elements on offer for an element with `lookup`; none for one that takes any text.
export function choiceElements(element) {
    const path = element.getAttribute("lookup");
    return path === null ? [] : selectAll(path, element);
}

// Their texts; null for one that takes any.
export function choicesOf(element) {
    return element.hasAttribute("lookup") ? choiceElements(element).map(nodeText) : null;
}

// Of a whole number, and of a text with a length.
function problemOfType(element, value) {
    if (element.getAttribute("type") === "number") {
        const [least, most] = [element.getAttribute("min") ?? "0", element.getAttribute("max") ?? "9007199254740991"];
        if (!/^\d+$/u.test(value)) {
            return { key: "notANumber" };
        }
        return Number(value) < Number(least) || Number(value) > Number(most) ? { key: "outOfRange", values: [least, most] } : null;
    }
    const longest = element.getAttribute("longest");
    return longest !== null && new TextEncoder().encode(value).length > Number(longest) ? { key: "textTooLong", values: [longest] } : null;
}

// Values that stand more than once among those that a `unique` path reaches. A thousand entries share one look at them:
// `seen` keeps it, by path and collection.
function repeatedValues(path, element, seen) {
    const holder = element.parentNode?.parentNode ?? element;
    const known = seen.get(holder)?.get(path);
    if (known !== undefined && known.nodes.has(element)) {
        return known.repeated;
    }
    const nodes = new Set(selectAll(path, element));
    const once = new Set();
    const repeated = new Set();
    for (const node of nodes) {
        const text = nodeText(node);
        (once.has(text) ? repeated : once).add(text);
    }
    if (!nodes.has(element)) {
        // A path to values elsewhere: its own must not stand among them at all.
        return once;
    }
    if (!seen.has(holder)) {
        seen.set(holder, new Map());
    }
    seen.get(holder).set(path, { nodes, repeated });
    return repeated;
}

// What is wrong with the value of an element, as a key of the page's texts or as the document's own words; null when
// nothing is. `seen` is a Map that lives for one round of checks.
export function problemOf(element, seen = new Map()) {
    const value = ownText(element);
    const check = element.getAttribute("check_value");
    if (check !== null && !holds(check, element)) {
        return { key: value === "" ? "mustNotBeEmpty" : "notAllowed" };
    }
    const wrong = problemOfType(element, value);
    if (wrong !== null) {
        return wrong;
    }
    const choices = choicesOf(element);
    const chosen = element.getAttribute("type") === "set" ? value.split(" ").filter((word) => word !== "") : [value];
    if (choices !== null && !chosen.every((word) => choices.includes(word))) {
        return { key: "notAChoice" };
    }
    const unique = element.getAttribute("unique");
    if (unique !== null && repeatedValues(unique, element, seen).has(value)) {
        return { key: "mustBeUnique" };
    }
    const restriction = element.getAttribute("restriction");
    if (restriction !== null && !holds(restriction, element)) {
        const path = element.getAttribute("onerror") ?? "";
        const text = documentText(path, nodeText(selectOne(path, element)), element.ownerDocument);
        return text === "" ? { key: "notAllowed" } : { text };
    }
    return null;
}
