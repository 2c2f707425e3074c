// Boot slots, partitions, and the power: restart, power-cycle, cut.

import { has, view } from "./board.js";
import { bytes, facts, figures, h, table, text } from "./dom.js";
import { act, button, confirmed, speaker, verbForm } from "./forms.js";

const kLost = "All programs die at once. What was written to a partition and not flushed may be lost, kept or torn.";

function buttons(said) {
    const actions = [
        ["power.restart", "Restart", () => act(said, "power.restart", {}, "It restarts: everything is flushed first.")],
        ["power.cycle", "Power-cycle…", () => confirmed("Take the power away and give it back?",
            `${kLost} Then the board starts again.`, "Power-cycle",
            () => act(said, "power.cycle", {}, "The power went, and the board starts again."))],
        ["power.cut", "Cut the power…", () => confirmed("Cut the power?",
            `${kLost} The board and this panel end.`, "Cut the power",
            () => act(said, "power.cut", {}, "The power was cut."))],
    ];
    return h("div", { class: "buttons" }, actions.filter(([verb]) => has(verb)).map(([verb, label, press]) =>
        button(label, press, verb === "power.restart" ? {} : { class: "danger" })));
}

function slots() {
    const rows = table("Boot slots, as this start found them", ["Slot", figures("Priority"), figures("Tries left"), figures("Successful")],
        (slot) => slot.slot, (first) => {
            const cells = ["priority", "tries", "successful"].map(() => h("td", { class: "number right" }));
            const running = h("span", { class: "tag", hidden: true }, "runs");
            return {
                element: h("tr", {}, h("th", { scope: "row" }, first.slot.toUpperCase(), " ", running), cells),
                update(slot) {
                    running.hidden = !slot.runs;
                    text(cells[0], slot.priority ?? "–");
                    text(cells[1], slot.tries ?? "–");
                    text(cells[2], slot.successful == null ? "–" : slot.successful ? "yes" : "no");
                },
            };
        });
    view("bootloader.show", (shown) => {
        const found = shown?.found ?? [{ slot: "a" }, { slot: "b" }];
        rows.update(found.map((slot) => ({ ...slot, runs: slot.slot === shown?.slot })));
    });
    return rows.element;
}

function partitions() {
    const rows = table("Partitions", ["Name", figures("Size"), figures("Sectors not flushed")], (part) => part.name, (first) => {
        const unflushed = h("td", { class: "number right" });
        return {
            element: h("tr", {}, h("th", { scope: "row" }, first.name),
                h("td", { class: "number right" }, bytes(first.size)), unflushed),
            update(part) {
                text(unflushed, part.unflushed);
                unflushed.classList.toggle("quiet", part.unflushed === 0);
            },
        };
    });
    view("partition.list", (list) => rows.update(list ?? []));
    return rows.element;
}

export const power = {
    id: "power",
    title: "Power, boot, partitions",
    needs: () => ["power.show", "bootloader.show", "partition.list"].map(has),
    make(section) {
        const said = speaker();
        const values = facts({ start: "Start", writes: "Writes to partitions since" });
        view("power.show", (shown) => values.update(shown));
        section.append(values.element, buttons(said), said);
        if (has("bootloader.show")) section.append(slots());
        if (has("partition.list")) section.append(partitions());
        section.append(h("details", {}, h("summary", {}, "Cut it at a certain write; let time run faster"),
            verbForm("power.cut_after", { label: "Cut after" }), verbForm("power.cycle_after", { label: "Cycle after" }),
            verbForm("clock.speed", { label: "Set speed" })));
    },
};
