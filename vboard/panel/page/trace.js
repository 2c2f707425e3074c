// The trace, live: what programs ask of the devices, what these do, and the system log.

import { on, view } from "./board.js";
import { h, text } from "./dom.js";
import { button } from "./forms.js";

const kKept = 2000; // events, for another filter
const kShown = 400; // of them as elements
const kBetween = 200; // ms from one look of the list to the next
const kCalls = new Set(["open", "ioctl", "read", "write", "fsync", "close", "mkdir", "rmdir", "symlink", "unlink"]);
const kLeftOut = new Set(["n", "t", "kind", "node", "tid", "open", "request", "code", "size", "offset", "bytes", "reply", "record",
    "reply_record", "argument", "result", "error", "mode", "nonblocking"]);

const short = (value) => {
    const words = typeof value === "string" ? value : JSON.stringify(value);
    return words.length > 120 ? `${words.slice(0, 120)}…` : words;
};

const pairs = (record) => Object.entries(record ?? {}).map(([name, value]) => `${name}=${short(value)}`);

// Of a long path the end tells more.
const tail = (path) => path.length > 40 ? `…${path.slice(path.indexOf("/", path.length - 32))}` : path;

// A line as `examples/demo` writes it; what it leaves out is in the JSON.
function words(event) {
    if (event.kind === "log") return `${event.ident ?? ""}: ${event.text}`;
    const parts = [event.node ? `${tail(event.node)}${event.open ? `#${event.open}` : ""}` : null];
    if (kCalls.has(event.kind)) {
        parts.push(event.request ?? event.code, ...pairs(event.reply_record ?? event.record));
        if (!event.record && event.bytes) parts.push(short(event.bytes));
        if (event.kind !== "close") parts.push(`-> ${event.error ?? event.result}`);
    }
    const rest = Object.entries(event).filter(([name]) => !kLeftOut.has(name) ||
        (!kCalls.has(event.kind) && !["n", "t", "kind", "node"].includes(name)));
    parts.push(...pairs(Object.fromEntries(rest)));
    return parts.filter((part) => part != null && part !== "").join(" ");
}

const kGroups = {
    all: () => true,
    calls: (event) => kCalls.has(event.kind),
    world: (event) => !kCalls.has(event.kind),
    log: (event) => event.kind === "log",
    wrong: (event) => Boolean(event.error) || ["misuse", "bug", "fault", "overflow"].includes(event.kind),
};

const groupNames = { all: "Everything", calls: "Calls", world: "All but calls", log: "System log", wrong: "What went wrong" };

// Each word has to be there; one behind a minus must not.
function wanted(filter, group) {
    const all = filter.toLowerCase().split(/\s+/).filter((word) => word && word !== "-");
    return (event) => kGroups[group](event) && all.every((word) =>
        word[0] === "-" ? !event.search.includes(word.slice(1)) : event.search.includes(word));
}

function line(event, asJson) {
    const classes = [kGroups.wrong(event) ? "wrong" : "", event.kind === "log" ? "log" : "", event.mark ? "mark" : ""];
    if (event.mark) return h("li", { class: "mark" }, event.mark);
    const { search, words: said, ...plain } = event;
    return h("li", { class: classes.join(" ").trim() || null },
        h("time", {}, event.t.toFixed(3)), h("b", {}, event.kind), ` ${asJson ? JSON.stringify(plain) : said}`);
}

export const trace = {
    id: "trace",
    title: "Trace",
    make(section) {
        const rows = h("ol", { class: "trace", tabindex: "0", role: "log", "aria-live": "off", "aria-label": "Events, the newest last" });
        const count = h("p", { class: "quiet number reserved" });
        const filter = h("input", { id: "filter", type: "search", placeholder: "gpio -close", autocomplete: "off", spellcheck: "false" });
        const group = h("select", { id: "group" }, Object.entries(groupNames).map(([value, name]) => h("option", { value }, name)));
        const json = h("input", { id: "json", type: "checkbox" });
        let kept = [];
        let fresh = [];
        let paused = false;
        let drawn = false;
        let total = 0;
        let lost = 0;
        let accepts = wanted("", "all");

        const show = (events) => {
            const atEnd = rows.scrollHeight - rows.scrollTop - rows.clientHeight < 24;
            rows.append(...events.filter((event) => event.mark || accepts(event)).slice(-kShown)
                .map((event) => line(event, json.checked)));
            while (rows.childElementCount > kShown) rows.firstElementChild.remove();
            if (atEnd) rows.scrollTop = rows.scrollHeight;
        };
        const tell = () => text(count, `${total} events${lost ? `, ${lost} lost on the way` : ""}` +
            `${paused ? `; paused, ${fresh.length} wait` : ""}`);
        const draw = () => {
            drawn = false;
            if (!paused) show(fresh.splice(0));
            tell();
        };
        const soon = () => {
            if (!drawn) setTimeout(() => requestAnimationFrame(draw), kBetween);
            drawn = true;
        };
        const again = () => {
            accepts = wanted(filter.value, group.value);
            rows.replaceChildren();
            fresh = paused ? fresh : [];
            show(paused ? kept.slice(0, kept.length - fresh.length) : kept);
            rows.scrollTop = rows.scrollHeight;
        };
        const add = (events) => {
            kept = kept.concat(events).slice(-kKept);
            fresh = fresh.concat(events).slice(-kKept);
            soon();
        };

        on("trace", (events) => {
            total += events.length;
            add(events.map((event) => {
                const said = words(event);
                return { ...event, words: said, search: `${event.kind} ${said} ${event.node ?? ""}`.toLowerCase() };
            }));
        });
        on("lost", (news) => {
            lost += news.events;
            add([{ mark: `${news.events} events are missing here` }]);
        });
        let starts = 0;
        view("board", (board) => {
            if (starts && board.starts > starts) add([{ mark: `start ${board.starts} of the board` }]);
            starts = board.starts;
        });
        const pause = button("Pause", () => {
            paused = !paused;
            text(pause, paused ? "Go on" : "Pause");
            soon();
        });
        filter.addEventListener("input", again);
        group.addEventListener("change", again);
        json.addEventListener("change", again);
        section.append(h("div", { class: "fields" },
            h("label", { for: "filter", class: "wide" }, h("span", {}, "Filter"), filter),
            h("label", { for: "group" }, h("span", {}, "Show"), group),
            h("label", { for: "json", class: "check" }, json, h("span", {}, "JSON")), pause,
            button("Clear", () => {
                kept = fresh = [];
                rows.replaceChildren();
                tell();
            })), rows, count);
    },
};
