// Puts the page together: the sections that this board has something for.

import { connect, has, learn, on, view } from "./board.js";
import { climate } from "./climate.js";
import { attribute, h, text } from "./dom.js";
import { faults } from "./faults.js";
import { front } from "./front.js";
import { genlock } from "./genlock.js";
import { clocks, lines } from "./lines.js";
import { power } from "./power.js";
import { sticks } from "./sticks.js";
import { trace } from "./trace.js";
import { usb } from "./usb.js";
import { allVerbs } from "./verbs.js";
import { video } from "./video.js";

const places = {
    front: [front],
    rail: [trace],
    left: [lines, clocks, genlock, video],
    right: [power, usb, sticks, climate, faults],
    foot: [allVerbs],
};

const byId = (id) => document.getElementById(id);

function mount(place, { id, title, needs, make }) {
    if (needs && !needs().some(Boolean)) return null;
    const section = h("section", { id, "aria-labelledby": `${id}-title` },
        h("h2", { id: `${id}-title` }, title));
    place.append(section);
    make(section);
    return h("a", { href: `#${id}` }, title);
}

function status({ link, words }) {
    document.body.className = link;
    text(byId("status").lastElementChild, words);
}

async function start() {
    on("link", status);
    for (;;) {
        const failed = await learn().then(() => null, (error) => error);
        if (!failed) break;
        status({ link: "lost", words: `${failed.message} Trying again…` });
        await new Promise((later) => setTimeout(later, 2000));
    }
    const links = Object.entries(places).flatMap(([id, sections]) =>
        sections.map((section) => mount(byId(id), section)));
    document.querySelector("nav").append(...links.filter(Boolean));
    view("board.info", (info) => {
        const words = info?.program ?? [];
        text(byId("program"), words.map((word) => word.replace(/^\/\S*\//, "")).join(" "));
        attribute(byId("program"), "title", words.join(" "));
    });
    if (has("clock.show")) {
        view("clock.show", (clock) => clock && text(byId("clock"),
            `${clock.seconds.toFixed(1)} s${clock.speed === 1 ? "" : `, ×${clock.speed}`}`));
    }
    connect();
}

start();
