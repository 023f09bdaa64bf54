// What the page remembers, in a storage of the browser; where there is none, it holds for this visit.

export function recall(storage, key) {
    try {
        return JSON.parse(storage().getItem(key));
    } catch {
        return null; // no storage for this page, or something else in it
    }
}

export function remember(storage, key, value) {
    try {
        storage().setItem(key, JSON.stringify(value));
    } catch {
        // Not kept, then.
    }
}

// The choices of the person, over visits; and what only this tab knows, also when the browser ends and restores it.
export const ofPhone = () => localStorage;
export const ofTab = () => sessionStorage;
