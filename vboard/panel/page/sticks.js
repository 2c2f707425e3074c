// USB sticks: images of the machine, plugged in and pulled out.

import { has, images, on, view } from "./board.js";
import { bytes, h, list, text } from "./dom.js";
import { act, button, say, speaker } from "./forms.js";

function plugForm(said) {
    const chosen = h("select", { id: "image" });
    const path = h("input", { id: "image-path", autocomplete: "off", spellcheck: "false", placeholder: "/whole/path/of/an.img" });
    const medium = h("select", { id: "medium" }, h("option", { value: "rw" }, "writable"),
        h("option", { value: "ro" }, "write-protected"));
    const other = h("label", { for: "image-path", class: "whole" }, h("span", {}, "Path of the image"), path);
    const offer = () => { other.hidden = chosen.value !== ""; };
    const look = async () => {
        const { folder, images: found } = await images().catch(() => ({ folder: null, images: [] }));
        const before = chosen.value;
        chosen.replaceChildren(...found.map((image) =>
            h("option", { value: image.path }, `${image.name} (${bytes(image.bytes)})`)),
        h("option", { value: "" }, folder ? "another image…" : "an image of the machine…"));
        if (found.some((image) => image.path === before)) chosen.value = before;
        offer();
    };
    chosen.addEventListener("change", offer);
    chosen.addEventListener("focus", look);
    on("link", ({ link }) => link === "running" && look());
    look();
    return h("form", {
        class: "verb", "aria-label": "Plug a stick in",
        onsubmit: (event) => {
            event.preventDefault();
            const image = chosen.value || path.value;
            if (image === "") say(said, "Which image? Give its whole path.", true);
            else act(said, "stick.plug", { image, medium: medium.value }, "Plugged in.");
        },
    }, h("div", { class: "fields" },
        h("label", { for: "image", class: "whole" }, h("span", {}, "Stick"), chosen), other,
        h("label", { for: "medium" }, h("span", {}, "Medium"), medium), h("button", {}, "Plug in")));
}

function stick(said, first) {
    const about = h("p", { class: "quiet" });
    const parts = h("ul", { class: "parts" });
    const keep = list(parts, (part) => part.name, () => {
        const element = h("li");
        return { element, update: (part) => text(element, `${part.name} ${bytes(part.size)}${part.label ? ` “${part.label}”` : ""}`) };
    }, "no partitions");
    return {
        element: h("li", { class: "stick" },
            h("div", {}, h("strong", {}, first.disk), " ", first.image.split("/").pop(), about, parts),
            button("Pull out", () => act(said, "stick.unplug", { disk: first.disk }, `${first.disk} is out.`),
                { "aria-label": `Pull out ${first.disk}` })),
        update(now) {
            text(about, [bytes(now.size), `port ${now.port}`, now.protected && "write-protected",
                now.mounts > 0 && `mounted ${now.mounts}×`, !now.plugged && "pulled out, still mounted"].filter(Boolean).join(", "));
            keep(now.partitions ?? []);
        },
    };
}

export const sticks = {
    id: "sticks",
    title: "USB sticks",
    needs: () => [has("stick.plug")],
    make(section) {
        const said = speaker();
        const items = h("ul", { class: "plain" });
        const keep = list(items, (one) => one.disk, (one) => stick(said, one), "No stick is in.");
        view("stick.list", (now) => keep(now ?? []));
        section.append(items, plugForm(said), said);
    },
};
