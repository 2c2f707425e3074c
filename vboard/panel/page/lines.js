// GPIO lines of the driver and of the kernel's class, and what the clock chips give.

import { has, numbers, verbs, view } from "./board.js";
import { figures, h, hertz, table, text } from "./dom.js";
import { act, speaker, toggle, verbForm } from "./forms.js";

const kBanks = { gpio: "Lines of the GPIO driver", sysgpio: "Lines of /sys/class/gpio" };

function bank(name, title) {
    const said = speaker();
    const lines = table(title, ["Line", "Label", "Direction", "Level"], (line) => line.line, (first) => {
        const number = first.line;
        const level = toggle(`Level of line ${number}`, (on) =>
            act(said, `${name}.drive`, { line: number, level: on ? 1 : 0 }));
        const label = h("td");
        const direction = h("td");
        const shown = h("b", { class: "level number" });
        return {
            element: h("tr", {}, h("th", { scope: "row", class: "number" }, number), label, direction,
                h("td", {}, h("div", { class: "pair" }, shown, level.element))),
            update(line) {
                text(label, line.label ?? (line.edge === "none" ? "" : `edge ${line.edge}`));
                text(direction, line.direction === "out" ? "output" : "input");
                text(shown, line.level);
                shown.classList.toggle("high", line.level === 1);
                level.element.hidden = line.direction === "out";
                level.update(line.level);
            },
        };
    }, "No line is in use.");
    view(`${name}.list`, (list) => lines.update(list?.lines ?? []));
    return [lines.element, said, h("details", {}, h("summary", {}, "Drive or wire any line"),
        verbForm(`${name}.drive`, { label: "Drive" }), verbForm(`${name}.wire`, { label: "Wire" }))];
}

export const lines = {
    id: "lines",
    title: "Lines",
    needs: () => Object.keys(kBanks).map((name) => has(`${name}.drive`)),
    make(section) {
        for (const [name, title] of Object.entries(kBanks)) {
            if (has(`${name}.drive`)) section.append(...bank(name, title));
        }
    },
};

// Chips that tell what their outputs give; any chip of that kind is found here.
const chips = () => [...verbs.keys()].filter((name) => name.endsWith(".frequency"))
    .map((name) => name.split(".")[0]);

function chip(kind, device) {
    const condition = h("span", { class: "quiet" });
    const outputs = table([`${kind} ${device} `, condition], ["Output", figures("Hz")],
        (output) => output.output, (first) => {
            const value = h("td", { class: "number right" });
            return {
                element: h("tr", {}, h("th", { scope: "row", class: "number" }, first.output), value),
                update(output) {
                    text(value, output.hz == null ? "no signal" : hertz(output.hz));
                    value.classList.toggle("quiet", output.hz == null);
                },
            };
        });
    view(`${kind}.show ${device}`, (shown) => {
        if (!shown) return;
        const locked = shown.locked ?? shown.vco_hz > 0;
        text(condition, shown.powered === false ? "no power" : locked ? "locked" : "not locked");
        condition.classList.toggle("good", locked);
        outputs.update(shown.outputs);
    });
    return outputs.element;
}

export const clocks = {
    id: "clocks",
    title: "Clocks",
    needs: chips,
    make(section) {
        section.append(h("div", { class: "tiles" }, chips().flatMap((kind) =>
            numbers(`${kind}.show`, "device").map((device) => chip(kind, device)))));
        const slow = verbForm("cdcm6208.lock_ms", { label: "Set lock time" });
        if (slow) section.append(slow);
    },
};
