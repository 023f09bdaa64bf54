// What makes this browser a camera of the server: a session, which a code or the camera's name and password give.

const TIMEOUT_MS = 10000;

// The host's answer: {status, camera}; status 0 stands for none.
async function ask(method, path, form) {
    try {
        // An address with a sign-in in it, as people keep it for a bookmark, is no base for a request.
        const answer = await fetch(new URL(path, location.origin), {
            method, cache: "no-store", signal: AbortSignal.timeout(TIMEOUT_MS),
            body: form === undefined ? undefined : new URLSearchParams(form),
        });
        const camera = answer.ok ? ((await answer.json().catch(() => ({}))).camera ?? "") : "";
        return { status: answer.status, camera };
    } catch {
        return { status: 0, camera: "" };
    }
}

export const readSession = () => ask("GET", "/phone/state");
export const pairByCode = (token) => ask("POST", "/phone/pair", { token });
export const pairByName = (name, password) => ask("POST", "/phone/sign-in", { name, password });
export const leave = () => ask("POST", "/phone/leave", {});

// The code in the address that was scanned. It stays there until it is used, so that the page may be reloaded.
export function codeInAddress() {
    const code = location.hash.slice(1);
    return /^[\w-]{8,128}$/.test(code) ? code : null;
}

export function forgetCode() {
    history.replaceState(null, "", location.pathname);
}
