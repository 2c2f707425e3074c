// Faults: let something go wrong with a node.

import { ask, has, view } from "./board.js";
import { figures, h, table, text } from "./dom.js";
import { act, button, say, speaker } from "./forms.js";

const kOperations = ["open", "ioctl", "read", "write", "fsync", "any"];
const kActions = ["EIO", "EACCES", "ENODEV", "EBUSY", "ENOSPC", "delay=100", "hold=TAG", "garble", "short=1", "vanish"];
const kConditions = ["once", "times=3", "after=10", "probability=0.5:seed=1"];

let ids = 0;
const labelled = (title, control) => {
    control.id = `fault${++ids}`;
    return h("label", { for: control.id }, h("span", {}, title), control);
};

function input(title, name, suggestions) {
    const options = h("datalist", { id: `${name}s` }, suggestions.map((one) => h("option", { value: one })));
    const control = h("input", { list: options.id, name, autocomplete: "off", spellcheck: "false" });
    return { control, options, element: labelled(title, control) };
}

function addForm() {
    const said = speaker();
    const node = input("Node", "node", []);
    const operation = input("Operation", "operation", kOperations);
    const action = input("What happens", "action", kActions);
    const condition = input("When (if not always)", "condition", kConditions);
    node.control.placeholder = "/dev/drvgpio or /dev/*";
    operation.control.placeholder = "ioctl=CMD_GPIO_SETVAL";
    action.control.placeholder = "EIO";
    condition.control.placeholder = "once";
    const parts = [node, operation, action, condition];
    parts.slice(0, 3).forEach((part) => { part.control.required = true; });
    node.control.addEventListener("focus", async () => {
        const nodes = await ask("node.list").catch(() => []);
        node.options.replaceChildren(...nodes.map((path) => h("option", { value: path })));
    });
    return h("form", {
        class: "verb", "aria-label": "Add a fault",
        onsubmit: async (event) => {
            event.preventDefault();
            const fault = parts.map((part) => part.control.value.trim()).filter(Boolean).join(":");
            const added = await act(said, "fault.add", { fault });
            if (added) say(said, `Added as number ${added.id}.`);
        },
    }, h("div", { class: "fields" }, parts.map((part) => [part.element, part.options]), h("button", {}, "Add")), said);
}

export const faults = {
    id: "faults",
    title: "Faults",
    needs: () => [has("fault.add")],
    make(section) {
        const said = speaker();
        const rows = table("What goes wrong", ["Fault", figures("Calls seen"), figures("Struck"), ""], (fault) => fault.id, (first) => {
            const seen = h("td", { class: "number right" });
            const struck = h("td", { class: "number right" });
            const tag = /:hold=([^:]+)/.exec(first.fault)?.[1];
            return {
                element: h("tr", {}, h("th", { scope: "row" }, h("code", {}, first.fault)), seen, struck,
                    h("td", {}, h("div", { class: "pair" },
                        tag ? button("Let go", () => act(said, "fault.release", { tag }, "Held calls go on."),
                            { "aria-label": `Let go what ${tag} holds` }) : null,
                        button("Remove", () => act(said, "fault.remove", { id: first.id }, `${first.fault} is gone.`),
                            { "aria-label": `Remove fault ${first.fault}` })))),
                update(fault) {
                    text(seen, fault.seen);
                    text(struck, fault.struck);
                },
            };
        }, "Nothing goes wrong by itself.");
        view("fault.list", (list) => rows.update(list ?? []));
        section.append(rows.element, said, addForm());
    },
};
