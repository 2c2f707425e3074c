// Elements, made and kept in step with values. Texts only ever become text nodes.

const kSvg = "http://www.w3.org/2000/svg";

function fill(element, props, children) {
    for (const [name, value] of Object.entries(props)) {
        if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
        else if (value === true) element.setAttribute(name, "");
        else if (value !== false && value != null) element.setAttribute(name, value);
    }
    element.append(...children.flat(Infinity).filter((child) => child != null));
    return element;
}

export const h = (tag, props = {}, ...children) =>
    fill(document.createElement(tag), props, children);

export const svg = (tag, props = {}, ...children) =>
    fill(document.createElementNS(kSvg, tag), props, children);

// A text is set only where it differs, so that a selection in it survives.
export function text(element, value) {
    const wanted = String(value ?? "");
    if (element.textContent !== wanted) element.textContent = wanted;
    return element;
}

export function attribute(element, name, value) {
    if (value === false || value == null) element.removeAttribute(name);
    else if (element.getAttribute(name) !== String(value)) element.setAttribute(name, value);
}

// Keeps an element for each item, by its key: what stays keeps its element, and with it the focus.
export function list(parent, key, make, nothing) {
    const kept = new Map();
    const empty = nothing && h(parent.tagName === "TBODY" ? "tr" : "li", { class: "nothing" },
        parent.tagName === "TBODY" ? h("td", { colspan: 9 }, nothing) : nothing);
    return (items) => {
        const wanted = new Set(items.map(key));
        for (const [name, row] of kept) {
            if (wanted.has(name)) continue;
            row.element.remove();
            kept.delete(name);
        }
        items.forEach((item, at) => {
            const name = key(item);
            if (!kept.has(name)) kept.set(name, make(item));
            const row = kept.get(name);
            if (parent.children[at] !== row.element) {
                parent.insertBefore(row.element, parent.children[at] ?? null);
            }
            row.update?.(item);
        });
        if (empty && items.length === 0) parent.append(empty);
        else empty?.remove();
    };
}

// The head of a column of figures.
export const figures = (head) => h("th", { scope: "col", class: "right" }, head);

// A table whose body a list() fills; it scrolls by itself where it is too wide.
export function table(caption, heads, key, make, nothing) {
    const body = h("tbody");
    const element = h("div", { class: "scroll" },
        h("table", {},
            h("caption", {}, caption),
            h("thead", {}, h("tr", {}, heads.map((head) =>
                typeof head === "string" ? h("th", { scope: "col" }, head) : head))),
            body));
    return { element, update: list(body, key, make, nothing) };
}

// Names and values: a term each, whose text update() sets.
export function facts(names) {
    const values = {};
    const element = h("dl", { class: "facts" });
    for (const [name, title] of Object.entries(names)) {
        values[name] = h("dd", { class: "number" }, "–");
        element.append(h("div", {}, h("dt", {}, title), values[name]));
    }
    return {
        element,
        update(now) {
            for (const name of Object.keys(names)) text(values[name], now?.[name] ?? "–");
        },
    };
}

export const bytes = (count) => {
    if (count < 1024) return `${count} B`;
    const unit = count < 1 << 20 ? "KiB" : "MiB";
    const amount = count / (unit === "KiB" ? 1024 : 1 << 20);
    return `${amount.toFixed(amount < 10 && !Number.isInteger(amount) ? 1 : 0)} ${unit}`;
};

export const hertz = (value) =>
    value.toLocaleString("en", { minimumFractionDigits: 1, maximumFractionDigits: 1 });
