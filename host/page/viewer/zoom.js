// The part of a source's picture that is shown, in thousandths of its width and height.

const ALL = 1000;
const LEAST = 10;

export const WHOLE = Object.freeze({ x: 0, y: 0, width: ALL, height: ALL });

export function isWhole(zoom) {
    return zoom.width >= ALL && zoom.height >= ALL;
}

function clamp(value, least, most) {
    return Math.min(Math.max(Math.round(value), least), most);
}

function part(x, y, width, height) {
    const w = clamp(width, LEAST, ALL);
    const h = clamp(height, LEAST, ALL);
    return { x: clamp(x, 0, ALL - w), y: clamp(y, 0, ALL - h), width: w, height: h };
}

// An area of the picture on the screen, in parts of 1, as one of the picture before it was turned: the screen shows it
// turned clockwise by so many quarters.
function turnBack(area, turns) {
    const { left, top, width, height } = area;
    switch (turns) {
    case 1:
        return { left: top, top: 1 - left - width, width: height, height: width };
    case 2:
        return { left: 1 - left - width, top: 1 - top - height, width, height };
    case 3:
        return { left: 1 - top - height, top: left, width: height, height: width };
    default:
        return area;
    }
}

// What a picture's box on the screen, {left, top, width, height}, shows once its point `from` has come to `to` and what is
// around that has grown by `scale`: an area of it in parts of 1.
export function areaOf(box, { scale, from, to }) {
    return {
        left: (from.x + (box.left - to.x) / scale - box.left) / box.width,
        top: (from.y + (box.top - to.y) / scale - box.top) / box.height,
        width: 1 / scale, height: 1 / scale,
    };
}

// area: what was marked of the picture on the screen, which shows `zoom`.
export function zoomInto(zoom, turns, area) {
    const inside = turnBack(area, turns);
    return part(
        zoom.x + inside.left * zoom.width, zoom.y + inside.top * zoom.height,
        inside.width * zoom.width, inside.height * zoom.height);
}

// The middle of what is shown, by a factor below 1.
export function zoomAround(zoom, factor) {
    const rest = (1 - factor) / 2;
    return part(zoom.x + zoom.width * rest, zoom.y + zoom.height * rest, zoom.width * factor, zoom.height * factor);
}

// "40 % × 30 %"
export function percentText(zoom) {
    const percent = (value) => `${(value / 10).toFixed(0)} %`;
    return `${percent(zoom.width)} × ${percent(zoom.height)}`;
}
