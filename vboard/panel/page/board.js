// The board, as the panel's server tells of it: verbs to ask, views that change, events as they come.

const token = new URLSearchParams(location.hash.slice(1)).get("token");
const watchers = new Map(); // of a view
const listeners = { trace: [], lost: [], link: [] };
const state = {};
let verbsText = "";
let cut = false; // the power, by this page

export const verbs = new Map();

export const has = (name) => verbs.has(name);
export const argument = (verb, name) => verbs.get(verb)?.arguments.find((one) => one.name === name);

// The numbers that an argument may be, where they are few.
export function numbers(verb, name) {
    const row = argument(verb, name);
    if (!row) return [];
    if (row.choices) return row.choices;
    return Array.from({ length: row.most - row.least + 1 }, (_, at) => row.least + at);
}

async function fetched(path, options = {}) {
    const headers = { ...options.headers, ...(token && { "X-Panel-Token": token }) };
    const answer = await fetch(path, { ...options, headers }).catch(() => {
        throw new Error("The board does not answer: it is off, or its panel has ended.");
    });
    return answer.json().catch(() => {
        throw new Error(`The panel answered with ${answer.status}.`);
    });
}

export async function ask(verb, args = {}) {
    cut ||= verb === "power.cut";
    const answer = await fetched("ask", {
        method: "POST",
        headers: { "Content-Type": "application/json" },
        body: JSON.stringify({ ...args, verb }),
    }).catch((error) => ({ error: error.message, kind: "gone" }));
    if (answer.ok) return answer.result;
    if (verb === "power.cut" && answer.kind === "gone") return null; // it is too dead to answer
    cut &&= verb !== "power.cut";
    throw new Error(answer.error ?? "The board said no.");
}

export const images = () => fetched("images");

// Calls `show` with the view's value, now where it is known, and whenever it has changed.
export function view(name, show) {
    if (!watchers.has(name)) watchers.set(name, []);
    watchers.get(name).push(show);
    if (name in state) show(state[name]);
}

export const on = (what, listen) => listeners[what].push(listen);

const tell = (what, value) => listeners[what].forEach((listen) => listen(value));

function take(changes) {
    Object.assign(state, changes);
    for (const [name, value] of Object.entries(changes)) {
        for (const show of watchers.get(name) ?? []) show(value);
    }
    if (changes.board) tellLink(changes.board.alive ? "running" : "off");
}

// In words that say what a visitor can do about it.
function tellLink(link) {
    if (link === "running") cut = false;
    const words = {
        running: `Running, start ${state.board?.starts ?? 1}`,
        off: "The board is off, waiting for it to start",
        lost: "No connection: the board is off, or its panel has ended. Trying again…",
    };
    tell("link", { link, words: cut && link !== "running" ? "The power was cut: the board is off" : words[link] });
}

// Another board at this address, with other devices, is another page.
export async function learn() {
    const rows = await fetched("verbs");
    if (!Array.isArray(rows)) throw new Error(rows.error);
    const now = JSON.stringify(rows);
    if (verbsText !== "" && verbsText !== now) location.reload();
    verbsText = now;
    rows.forEach((row) => verbs.set(row.verb, row));
}

export function connect() {
    const source = new EventSource(token ? `events?token=${encodeURIComponent(token)}` : "events");
    let broken = false;
    const heard = (what, act) =>
        source.addEventListener(what, (event) => act(JSON.parse(event.data)));
    heard("state", take);
    heard("trace", (events) => tell("trace", events));
    heard("lost", (lost) => tell("lost", lost));
    source.addEventListener("open", () => {
        if (broken) learn().then(() => tellLink(state.board?.alive ? "running" : "off"), () => {});
        broken = false;
    });
    source.addEventListener("error", () => {
        broken = true;
        tellLink("lost");
        if (source.readyState !== EventSource.CLOSED) return; // it tries again by itself
        setTimeout(() => learn().then(connect, connect), 2000);
    });
}
