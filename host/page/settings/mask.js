// A mask of cells over a camera's picture: drawn with the pointer, or with the keys from cell to cell.

import { Field, make } from "./field.js";
import { ownText, setOwnText } from "./rules.js";
import { text } from "../shared/words.js";

// As the document has it: a hexadecimal digit for four cells, row by row, the highest bit leftmost; empty for none.
const COLUMNS = 40;
const ROWS = 30;
const CELL = 16; // pixels of the drawing for each
const STEPS = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

function cellsOf(digits) {
    const cells = new Uint8Array(COLUMNS * ROWS);
    if (digits.length === cells.length / 4) {
        for (let i = 0; i < cells.length; i += 1) {
            cells[i] = (parseInt(digits[i >> 2], 16) >> (3 - (i & 3))) & 1;
        }
    }
    return cells;
}

function digitsOf(cells) {
    if (!cells.includes(1)) {
        return "";
    }
    let digits = "";
    for (let i = 0; i < cells.length; i += 4) {
        digits += (cells[i] * 8 + cells[i + 1] * 4 + cells[i + 2] * 2 + cells[i + 3]).toString(16);
    }
    return digits;
}

export class MaskField extends Field {
    get isGroup() {
        return true;
    }

    makeControl() {
        this.button = make("button", { type: "button", textContent: text("drawMask") });
        this.button.setAttribute("aria-expanded", "false");
        this.button.addEventListener("click", () => this.toggle());
        this.clear = make("button", { type: "button", textContent: text("clearMask") });
        this.clear.addEventListener("click", () => {
            this.cells.fill(0);
            this.changedByHand();
        });
        this.share = make("span", { className: "mask-share" });
        this.pad = null; // made when somebody opens it: it asks for the camera's picture
        const group = make("div", { className: "mask" }, this.button, this.clear, this.share);
        group.setAttribute("role", "group");
        group.setAttribute("aria-labelledby", `${this.id}-name`);
        group.focus = () => this.button.focus();
        return group;
    }

    // Beside the mask in the document stands the camera's name.
    get camera() {
        const name = this.element.parentNode?.querySelector("name");
        return name ? ownText(name) : "";
    }

    show() {
        this.cells = cellsOf(ownText(this.element));
        this.render();
    }

    read() {
        setOwnText(this.element, digitsOf(this.cells));
    }

    changedByHand() {
        this.edit();
        this.render();
    }

    toggle() {
        const opens = this.pad === null || this.pad.hidden;
        if (this.pad === null) {
            this.makePad();
        }
        this.pad.hidden = !opens;
        this.button.setAttribute("aria-expanded", String(opens));
        this.button.textContent = text(opens ? "closeMask" : "drawMask");
        if (opens) {
            // The latest picture, each time.
            this.picture.src = `/snapshot/${encodeURIComponent(this.camera)}.jpg?mask=${Date.now()}`;
            this.render();
        }
    }

    makePad() {
        this.cursor = { column: 0, row: 0 };
        this.picture = make("img", { alt: "", draggable: false });
        this.picture.addEventListener("error", () => this.picture.removeAttribute("src"));
        this.canvas = make("canvas", { width: COLUMNS * CELL, height: ROWS * CELL, tabIndex: 0 });
        this.canvas.setAttribute("role", "application");
        this.canvas.setAttribute("aria-label", `${this.label}: ${this.camera}. ${text("maskKeys")}`);
        this.canvas.addEventListener("pointerdown", (event) => this.begin(event));
        this.canvas.addEventListener("pointermove", (event) => this.draw(event));
        for (const end of ["pointerup", "pointercancel"]) {
            this.canvas.addEventListener(end, () => this.end());
        }
        this.canvas.addEventListener("keydown", (event) => this.press(event));
        for (const change of ["focus", "blur"]) {
            this.canvas.addEventListener(change, () => this.render());
        }
        this.pad = make("div", { className: "mask-pad" }, this.picture, this.canvas);
        this.control.append(this.pad);
    }

    cellAt(event) {
        const place = this.canvas.getBoundingClientRect();
        const within = (value, count) => Math.min(count - 1, Math.max(0, Math.floor(value * count)));
        return {
            column: within((event.clientX - place.left) / place.width, COLUMNS),
            row: within((event.clientY - place.top) / place.height, ROWS),
        };
    }

    // The first cell says whether a stroke masks or clears.
    begin(event) {
        if (event.button !== 0) {
            return;
        }
        event.preventDefault();
        this.canvas.setPointerCapture(event.pointerId);
        const cell = this.cellAt(event);
        this.stroke = { masks: 1 - this.cells[cell.row * COLUMNS + cell.column], last: cell };
        this.draw(event);
    }

    draw(event) {
        if (!this.stroke) {
            return;
        }
        // A quick pointer passes over cells between two events.
        const to = this.cellAt(event);
        const from = this.stroke.last;
        const steps = Math.max(Math.abs(to.column - from.column), Math.abs(to.row - from.row), 1);
        for (let i = 0; i <= steps; i += 1) {
            const column = Math.round(from.column + ((to.column - from.column) * i) / steps);
            const row = Math.round(from.row + ((to.row - from.row) * i) / steps);
            this.cells[row * COLUMNS + column] = this.stroke.masks;
        }
        this.stroke.last = to;
        this.cursor = to;
        this.render();
    }

    end() {
        if (this.stroke) {
            this.stroke = null;
            this.changedByHand();
        }
    }

    press(event) {
        const step = STEPS[event.key];
        if (step !== undefined) {
            this.cursor.column = Math.min(COLUMNS - 1, Math.max(0, this.cursor.column + step[0]));
            this.cursor.row = Math.min(ROWS - 1, Math.max(0, this.cursor.row + step[1]));
            this.render();
        } else if (event.key === " ") {
            const at = this.cursor.row * COLUMNS + this.cursor.column;
            this.cells[at] = 1 - this.cells[at];
            this.changedByHand();
        } else {
            return;
        }
        event.preventDefault();
    }

    render() {
        const masked = this.cells.reduce((sum, cell) => sum + cell, 0);
        this.share.textContent = masked === 0 ? text("nothingMasked") : text("partMasked", Math.max(1, Math.round((100 * masked) / this.cells.length)));
        this.clear.hidden = masked === 0;
        if (this.pad === null || this.pad.hidden) {
            return;
        }
        const context = this.canvas.getContext("2d");
        context.clearRect(0, 0, this.canvas.width, this.canvas.height);
        context.fillStyle = "rgb(220 40 40 / 55%)";
        this.cells.forEach((cell, index) => {
            if (cell === 1) {
                context.fillRect((index % COLUMNS) * CELL, Math.floor(index / COLUMNS) * CELL, CELL, CELL);
            }
        });
        if (document.activeElement === this.canvas) {
            context.strokeStyle = "white";
            context.lineWidth = 2;
            context.strokeRect(this.cursor.column * CELL + 1, this.cursor.row * CELL + 1, CELL - 2, CELL - 2);
        }
    }
}
