// Everything that a test can do: each verb of the board, with a form made from its argument rows.

import { verbs } from "./board.js";
import { h } from "./dom.js";
import { verbForm } from "./forms.js";

function one(row) {
    const title = h("h4", {}, h("code", {}, row.verb));
    if (!row.follows) return h("div", { class: "one" }, title, verbForm(row.verb, { label: "Do it", shows: true, help: true }));
    return h("div", { class: "one" }, title, h("p", { class: "quiet" }, `${row.help}: the trace on this page follows already.`));
}

// The forms of a group are made when it is opened.
function group(name, rows) {
    const details = h("details", {}, h("summary", {}, h("code", {}, name), " ",
        h("span", { class: "quiet" }, rows.map((row) => row.verb.slice(name.length + 1)).join(", "))));
    details.addEventListener("toggle", () => {
        if (details.childElementCount === 1) details.append(h("div", { class: "tiles" }, rows.map(one)));
    });
    return details;
}

export const allVerbs = {
    id: "verbs",
    title: "Every verb",
    make(section) {
        const groups = new Map();
        for (const row of verbs.values()) {
            const name = row.verb.split(".")[0];
            groups.set(name, [...groups.get(name) ?? [], row]);
        }
        section.append(h("p", { class: "quiet" }, "What vboard ctl can do, a hand can do here."),
            h("div", { class: "groups" }, [...groups].map(([name, rows]) => group(name, rows))));
    },
};
