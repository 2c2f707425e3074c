// The USB host computer: the cable, what it received, its view of the disk; and the MCU on the way.

import { has, on, verbs, view } from "./board.js";
import { attribute, bytes, facts, h, list, svg, text } from "./dom.js";
import { act, button, speaker, toggle, verbForm } from "./forms.js";

const kLamps = ["num", "caps", "scroll"]; // by their bit
const kEnd = 32767; // of a position

// The host's model has a name, and its verbs with it.
const hostName = () => [...verbs.keys()].find((name) => name.endsWith(".typed"))?.split(".")[0];

// What the pointers and fingers do, on a screen of 160 x 90.
function screen(host) {
    const dots = svg("g");
    const picture = svg("svg", { viewBox: "0 0 160 90", class: "screen", role: "img", "aria-label": "The computer's screen" }, dots);
    const where = h("p", { class: "quiet number reserved" });
    let pointers = [];
    let fingers = [];
    const spot = (kind, radius) => ({ x, y }) =>
        svg("circle", { class: kind, cx: x / kEnd * 160, cy: y / kEnd * 90, r: radius });
    const draw = () => {
        const absolute = pointers.filter((pointer) => pointer.absolute);
        dots.replaceChildren(...absolute.map(spot("pointer", 2.5)), ...fingers.map(spot("finger", 4)));
        const words = pointers.map((pointer) => pointer.absolute
            ? `pointer at ${pointer.x}, ${pointer.y}` : `mouse moved by ${pointer.x}, ${pointer.y}`);
        if (fingers.length > 0) words.push(`${fingers.length} fingers touch`);
        text(where, words.join("; ") || "Nothing was moved or touched.");
        attribute(picture, "aria-label", `The computer's screen: ${where.textContent}`);
    };
    view(`${host}.pointer`, (now) => { pointers = now ?? []; draw(); });
    view(`${host}.touches`, (now) => { fingers = now?.touching ?? []; draw(); });
    return [picture, where];
}

function keyboard(host, said) {
    const typed = h("pre", { class: "typed", tabindex: "0", "aria-label": "What was typed on the computer" });
    const down = h("p", { class: "quiet number reserved" });
    const lamps = kLamps.map((lamp) => ({ lamp, ...toggle(`${lamp} lock lamp`, (lit) =>
        act(said, `${host}.led`, { lamp, lit: lit ? 1 : 0 })) }));
    view(`${host}.typed`, (now) => {
        text(typed, now?.text || "");
        typed.scrollTop = typed.scrollHeight;
        const keys = (now?.down ?? []).map((key) => `${key.page} ${key.usage}`).join(", ");
        text(down, keys ? `Keys down: ${keys}` : "No key is down.");
        lamps.forEach(({ update }, bit) => update((now?.locks ?? 0) >> bit & 1));
    });
    return [h("h3", {}, "Typed"), typed, down, h("div", { class: "row" }, lamps.map(({ lamp, element }) =>
        h("span", { class: "pair" }, element, h("span", { "aria-hidden": "true" }, lamp))))];
}

function disk(host) {
    const jobs = h("ul", { class: "plain number" });
    const known = new Map();
    const keep = list(jobs, (job) => job.job, () => {
        const element = h("li");
        return { element, update: (job) => text(element, `Job ${job.job}: ${job.operation} ${job.state}` +
            `${job.bytes ? `, ${bytes(job.done ?? 0)} of ${bytes(job.bytes)}` : ""}${job.why ? `, ${job.why}` : ""}`) };
    });
    on("trace", (events) => {
        const news = events.filter((event) => event.kind === "usb_disk" && event.job);
        if (news.length === 0) return;
        news.forEach((event) => known.set(event.job, { ...known.get(event.job), ...event }));
        keep([...known.values()].slice(-4));
    });
    const values = facts({ name: "Disk", size: "Size", state: "State" });
    view(`${host}.disk_info`, (info) => values.update(info && {
        name: `${info.vendor} ${info.product}`,
        size: info.blocks ? bytes(info.blocks * info.block_size) : "–",
        state: info.known ? info.write_protected ? "write-protected" : "ready" : "not usable",
    }));
    return [h("h3", {}, "Its disk"), values.element, jobs,
        h("details", {}, h("summary", {}, "Copy the disk, write to it"),
            verbForm(`${host}.disk_read`, { label: "Copy to file" }),
            verbForm(`${host}.disk_write`, { label: "Write file" }))];
}

function mcu(said) {
    const values = facts({ state: "State", usb: "Its USB device", waiting: "Packets waiting", bridge: "Bridge disk" });
    const hangs = toggle("The MCU hangs", (now) => act(said, "mcu.hang", { on: now ? 1 : 0 }));
    view("mcu.show", (now) => {
        values.update(now && { ...now, bridge: now.bridge ? "there" : "gone" });
        hangs.update(now?.hangs);
    });
    return [h("h3", {}, "MCU"), values.element,
        h("div", { class: "row" }, h("span", { class: "pair" }, hangs.element, h("span", { "aria-hidden": "true" }, "hangs")))];
}

// Which of the board's two ports has the socket.
function way(host, shown) {
    let gadget = false;
    let chip = false;
    const words = () => gadget ? "the SoC's port" : chip ? "the MCU" : "–";
    if (has("usb.gadget")) {
        view("usb.gadget", (now) => {
            gadget = Boolean(now?.controllers.some((one) => one.gadget !== "" && one.state !== "not attached"));
            shown(words());
        });
    }
    if (has("mcu.show")) {
        view("mcu.show", (now) => {
            chip = Boolean(now?.attached);
            shown(words());
        });
    }
}

export const usb = {
    id: "usb",
    title: "USB host computer",
    needs: () => [hostName()],
    make(section) {
        const host = hostName();
        const said = speaker();
        const cable = toggle("USB cable", (plugged) => act(said, `${host}.${plugged ? "plug" : "unplug"}`));
        const values = facts({ state: "Device", id: "Is", via: "By way of" });
        const now = {};
        way(host, (via) => values.update(Object.assign(now, { via })));
        view(`${host}.show`, (shown) => {
            cable.update(shown?.plugged);
            const state = !shown?.plugged ? "the cable is out" : !shown.attached ? "none is attached"
                : shown.suspended ? "suspended" : shown.state;
            const id = shown?.vendor ? `${shown.vendor}:${shown.product}` : "–";
            values.update(Object.assign(now, { state, id }));
        });
        const simple = (verb, label) => button(label, () => act(said, `${host}.${verb}`, {}, "Done."));
        section.append(
            h("div", { class: "row" }, h("span", { class: "pair" }, cable.element, h("span", { "aria-hidden": "true" }, "Cable in")),
                simple("reset", "Reset bus"), simple("suspend", "Suspend"), simple("resume", "Resume"),
                simple("forget", "Forget input")),
            said, values.element, ...screen(host), ...keyboard(host, said), ...disk(host));
        if (has("mcu.show")) section.append(...mcu(said));
    },
};
