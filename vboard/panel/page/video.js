// Video chips: what is plugged into each, and the EDID it shows.

import { numbers, verbs, view } from "./board.js";
import { figures, h, table, text } from "./dom.js";
import { act, speaker, toggle } from "./forms.js";

// Chips have both: something to plug in for a device of a number, and a state to show of it.
const families = () => [...verbs.values()].filter((row) => row.verb.endsWith(".plug") &&
    row.arguments.some((one) => one.name === "device")).map((row) => row.verb.split(".")[0]);

// Maker (three letters of five bits) and the name among the descriptors.
function edidName(hex) {
    const at = (index) => parseInt(hex.substr(index * 2, 2), 16);
    if (!hex.startsWith("00ffffffffffff00")) return "none";
    const maker = at(8) << 8 | at(9);
    const letters = [10, 5, 0].map((shift) => String.fromCharCode(64 + (maker >> shift & 31))).join("");
    const start = [54, 72, 90, 108].find((index) => at(index) === 0 && at(index + 1) === 0 && at(index + 3) === 0xfc);
    if (!start) return letters;
    const name = Array.from({ length: 13 }, (_, index) => String.fromCharCode(at(start + 5 + index))).join("");
    return `${letters} ${name.split("\n")[0].trim()}`;
}

const dump = (hex) => hex.match(/.{1,32}/g).map((row) => row.match(/../g).join(" ")).join("\n");

export const video = {
    id: "video",
    title: "Video chips",
    needs: families,
    make(section) {
        const said = speaker();
        const all = families().flatMap((family) => numbers(`${family}.plug`, "device").map((device) =>
            ({ family, device, name: `${family} ${device}` })));
        const edids = h("div");
        const rows = table("Sockets and EDIDs", ["Chip", "State", "EDID", figures("Plugged in")], (chip) => chip.name, ({ family, device, name }) => {
            const state = h("td");
            const edid = h("td");
            const plugged = toggle(`Something is plugged into ${name}`, (on) =>
                act(said, `${family}.plug`, { device, plugged: on ? 1 : 0 }));
            const bytes = h("pre", { tabindex: "0", "aria-label": `EDID of ${name}` });
            const more = h("details", { hidden: true }, h("summary", {}, `EDID of ${name}`), bytes);
            edids.append(more);
            view(`${family}.show ${device}`, (chip) => {
                if (!chip) return;
                text(state, !chip.answers ? "held in reset" : chip.running ? "running" : "not set up");
                text(edid, chip.edid === undefined ? "–" : `${edidName(chip.edid)}, ${chip.edid_state}`);
                plugged.update(chip.plugged);
                more.hidden = !/[^0]/.test(chip.edid ?? "");
                if (!more.hidden) text(bytes, dump(chip.edid));
            });
            return { element: h("tr", {}, h("th", { scope: "row" }, name), state, edid, h("td", { class: "right" }, plugged.element)) };
        });
        rows.update(all);
        section.append(rows.element, said, edids);
    },
};
