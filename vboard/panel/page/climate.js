// Temperature, fans, and the cables of the network.

import { has, numbers, view } from "./board.js";
import { figures, h, table, text } from "./dom.js";
import { act, button, speaker, toggle, verbForm } from "./forms.js";

function fans(said) {
    const all = new Map();
    const rows = table("Fans", ["Fan", figures("Speed"), figures("Set to"), figures("Blades held")], (fan) => fan.channel, (first) => {
        const rpm = h("td", { class: "number right" });
        const percent = h("td", { class: "number right" });
        const held = toggle(`Hold the blades of fan ${first.channel}`, (on) =>
            act(said, "fan.stall", { channel: first.channel, stalled: on ? 1 : 0 }));
        return {
            element: h("tr", {}, h("th", { scope: "row", class: "number" }, first.channel), rpm, percent, h("td", { class: "right" }, held.element)),
            update(fan) {
                text(rpm, `${fan.rpm} rpm`);
                text(percent, fan.power ? `${fan.percent} %` : "no power");
                held.update(fan.stalled);
            },
        };
    });
    for (const channel of numbers("fan.show", "channel")) {
        view(`fan.show ${channel}`, (fan) => {
            if (fan) all.set(channel, { channel, ...fan });
            rows.update([...all.values()]);
        });
    }
    return rows.element;
}

function links(said) {
    const rows = table("Links", ["Interface", "Up", figures("Mbit/s"), figures("Cable in")], (link) => link.interface, (first) => {
        const name = first.interface;
        const up = h("td");
        const speed = h("td", { class: "number right" });
        const cable = toggle(`Cable of ${name}`, (on) => act(said, "net.link", { interface: name, link: on ? 1 : 0 }));
        return {
            element: h("tr", {}, h("th", { scope: "row" }, name), up, speed, h("td", { class: "right" }, cable.element)),
            update(link) {
                text(up, link.up ? "yes" : "no");
                text(speed, link.speed);
                cable.update(link.link);
            },
        };
    });
    view("net.list", (list) => rows.update((list ?? []).filter((link) => link.interface !== "lo")));
    return rows.element;
}

export const climate = {
    id: "climate",
    title: "Temperature, fans, links",
    needs: () => ["thermal.pin", "fan.show", "net.list"].map(has),
    make(section) {
        const said = speaker();
        if (has("thermal.show")) {
            const degrees = h("strong", { class: "large number" }, "–");
            const pinned = h("span", { class: "quiet" });
            view("thermal.show", (shown) => {
                text(degrees, shown ? `${shown.degrees.toFixed(1)} °C` : "–");
                text(pinned, shown?.pinned ? "held there" : "follows heat and fans");
            });
            section.append(h("p", { class: "reading" }, degrees, " ", pinned));
        }
        const pin = verbForm("thermal.pin", { label: "Hold" });
        if (pin) {
            pin.querySelector(".fields").append(button("Let go", () => act(said, "thermal.pin", {}, "It goes its own way again.")));
            section.append(pin);
        }
        if (has("fan.show")) section.append(fans(said));
        if (has("net.list")) section.append(links(said));
        section.append(said);
        if (has("net.speed")) {
            section.append(h("details", {}, h("summary", {}, "Heat, and the speed of a link"),
                verbForm("thermal.rise", { label: "Set rise" }), verbForm("net.speed", { label: "Set speed" })));
        }
    },
};
