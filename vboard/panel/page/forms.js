// Controls that ask the board for something, and say beside themselves what it answered.

import { ask, verbs } from "./board.js";
import { attribute, h, text } from "./dom.js";

// Where the answer to a group of controls stands. Its line is there before there is an answer.
export const speaker = () => h("output", { class: "said" });

export function say(said, words, wrong = false) {
    said.classList.toggle("wrong", wrong);
    text(said, words);
}

export async function act(said, verb, args = {}, words = "") {
    try {
        const result = await ask(verb, args);
        say(said, words);
        return result;
    } catch (error) {
        say(said, error.message, true);
        return undefined;
    }
}

// Questions of one hand go one after another: what was asked later must not be done earlier.
export function inOrder() {
    let last = Promise.resolve();
    return (said, verb, args) => (last = last.then(() => act(said, verb, args)));
}

export const button = (label, press, props = {}) =>
    h("button", { type: "button", ...props, onclick: press }, label);

// A switch that shows what is, and asks for the other. `turn` is told what is wanted.
export function toggle(label, turn) {
    const element = h("button", {
        type: "button", role: "switch", "aria-checked": "false", "aria-label": label,
        onclick: () => turn(element.getAttribute("aria-checked") !== "true"),
    });
    return { element, update: (on) => attribute(element, "aria-checked", String(Boolean(on))) };
}

let fields = 0;

function hint(row) {
    if (row.default !== undefined) return JSON.stringify(row.default).replace(/^"|"$/g, "");
    if (row.least !== undefined && row.most !== undefined) return `${row.least} to ${row.most}`;
    return row.optional ? "may be left out" : "";
}

function field(row) {
    const choices = row.choices ?? (row.least === 0 && row.most === 1 ? [0, 1] : null);
    const id = `field${++fields}`;
    const input = choices && choices.length > 1
        ? h("select", { id },
            row.optional && row.default === undefined ? h("option", { value: "" }, "–") : null,
            choices.map((one) => h("option", { value: one, selected: one === row.default }, String(one))))
        : h("input", {
            id, placeholder: hint(row), autocomplete: "off", spellcheck: "false",
            inputmode: row.type === "text" || row.type === "object" ? "text" : "decimal",
            required: !row.optional, value: choices ? choices[0] : null,
        });
    return { row, input, element: h("label", { for: id }, h("span", {}, row.name.replaceAll("_", " ")), input) };
}

// The value as the board wants it. What is no number goes as it is, for the board to say so.
function read({ row, input }) {
    const typed = input.value;
    if (row.type === "text") return typed;
    if (row.type === "object") return JSON.parse(typed);
    const value = typed.trim() === "" ? NaN : Number(typed);
    if (Number.isInteger(value) && !Number.isSafeInteger(value)) {
        throw new Error(`${row.name} is larger than this page can count.`);
    }
    return Number.isNaN(value) ? typed : value;
}

// A form made from a verb's argument rows, but for those that are given.
export function verbForm(name, { given = {}, label = name, shows = false, help = false } = {}) {
    const verb = verbs.get(name);
    if (!verb) return null;
    const parts = verb.arguments.filter((row) => !(row.name in given)).map(field);
    const said = speaker();
    const answer = shows ? h("pre", { hidden: true, tabindex: "0", "aria-label": `Answer of ${name}` }) : null;
    const form = h("form", { class: "verb", "aria-label": name, title: verb.help },
        help ? h("p", { class: "quiet" }, verb.help) : null,
        h("div", { class: "fields" }, parts.map((part) => part.element),
            h("button", {}, label)),
        said, answer);
    form.addEventListener("submit", async (event) => {
        event.preventDefault();
        const args = { ...given };
        try {
            for (const part of parts) {
                if (part.input.value !== "" || !part.row.optional) args[part.row.name] = read(part);
            }
        } catch (error) {
            say(said, error.message, true);
            return;
        }
        const result = await act(said, name, args, "Done.");
        if (!answer) return;
        answer.hidden = result == null;
        text(answer, typeof result === "string" ? result : JSON.stringify(result, null, 2));
    });
    return form;
}

// Asks before something that cannot be taken back.
export function confirmed(question, more, yes, act) {
    const dialog = h("dialog", { "aria-labelledby": `ask${++fields}`, onclose: () => dialog.remove() },
        h("h2", { id: `ask${fields}` }, question),
        h("p", {}, more),
        h("form", { method: "dialog" },
            h("button", { value: "no", autofocus: true }, "Cancel"),
            h("button", { value: "yes", class: "danger", onclick: act }, yes)));
    document.body.append(dialog);
    dialog.showModal();
}
