// The device's front: displays, keys, LEDs and T-bars, as a picture that can be used.

import { argument, has, numbers, view } from "./board.js";
import { attribute, h, svg, text } from "./dom.js";
import { act, inOrder, speaker, verbForm } from "./forms.js";

const kKeys = [ // by their number; where each stands is in style.css
    { name: "Up", path: "M5 15 12 8l7 7" },
    { name: "Down", path: "m5 9 7 7 7-7" },
    { name: "Enter", path: "M19 6v6H6m4-4-4 4 4 4" },
    { name: "Back", path: "M15 5l-7 7 7 7" },
    { name: "Power", path: "M12 4v7M7.5 7a7 7 0 1 0 9 0" },
];

function display(panel) {
    const picture = h("img", { width: 256, height: 128, alt: "", src: "dark.svg" });
    const figure = h("figure", { class: "oled" }, picture, h("figcaption", {}, `Display ${panel}`));
    view(`oled.png ${panel}`, (shot) => {
        attribute(picture, "src", shot?.png ? `data:image/png;base64,${shot.png}` : "dark.svg");
    });
    view(`oled.show ${panel}`, (shown) => {
        const words = shown?.text?.map((line) => line.trim()).filter(Boolean).join("; ");
        attribute(picture, "alt", shown?.on ? words || "Nothing on it" : "Off");
    });
    return figure;
}

// A key is down as long as it is held, by mouse, finger or keyboard.
function key(number, said, ask) {
    const { name, path } = kKeys[number];
    let down = false;
    const move = (wanted) => {
        if (wanted === down) return;
        down = wanted;
        ask(said, down ? "keypad.down" : "keypad.up", { key: number });
    };
    const typed = (wanted) => (event) => {
        if (event.key !== "Enter" && event.key !== " ") return;
        event.preventDefault();
        move(wanted);
    };
    return h("button", {
        type: "button", class: `key key${number}`, "aria-label": `${name}, key ${number}`,
        onpointerdown: (event) => {
            event.currentTarget.setPointerCapture(event.pointerId);
            if (event.button === 0) move(true);
        },
        onpointerup: () => move(false), onpointercancel: () => move(false),
        onlostpointercapture: () => move(false), onblur: () => move(false),
        onkeydown: typed(true), onkeyup: typed(false),
        onclick: (event) => event.detail === 0 && !down && ask(said, "keypad.press", { key: number }),
        oncontextmenu: (event) => event.preventDefault(),
    }, svg("svg", { viewBox: "0 0 24 24", "aria-hidden": "true" }, svg("path", { d: path })),
    h("span", { "aria-hidden": "true" }, name));
}

function keypad(said) {
    const ask = inOrder();
    const count = Math.min(kKeys.length, argument("keypad.down", "key").most + 1);
    const keys = kKeys.slice(0, count).map((_, number) => key(number, said, ask));
    view("keypad.show", (shown) => keys.forEach((one, number) =>
        one.classList.toggle("down", Boolean(shown?.down.includes(number)))));
    const arrows = { ArrowUp: 0, ArrowDown: 1 };
    return h("div", {
        class: "keys", role: "group", "aria-label": "Keys; the arrow keys press Up and Down",
        onkeydown: (event) => {
            if (!(event.key in arrows)) return;
            event.preventDefault();
            if (!event.repeat) ask(said, "keypad.press", { key: arrows[event.key] });
        },
    }, keys);
}

function leds() {
    const dots = numbers("led.show", "led").map((led) => h("i", { title: `LED ${led}: off` }));
    const strip = h("div", { class: "leds", role: "img", "aria-label": "LEDs" }, dots);
    view("led.list", (list) => {
        const set = new Map((list ?? []).map((led) => [led.led, led]));
        dots.forEach((dot, number) => {
            const led = set.get(number);
            dot.classList.toggle("lit", Boolean(led?.lit));
            dot.style.setProperty("--colour", led ? `#${led.colour}` : "transparent");
            dot.style.setProperty("--strength", led ? 0.35 + led.brightness / 255 * 0.65 : 0);
            attribute(dot, "title", `LED ${number}: ${led ? `${led.mode}, ${led.colour}` : "off"}`);
        });
        const words = [...set.values()].map((led) => `${led.led} ${led.mode}`).join(", ");
        attribute(strip, "aria-label", `LEDs: ${words || "all off"}`);
    });
    return h("figure", { class: "strip" }, strip, h("figcaption", {}, `LEDs 0 to ${dots.length - 1}`));
}

// While a hand is on it the hand says where it is. One move is under way at a time, the newest next.
function fader(number, said) {
    const output = h("output", { class: "number", "aria-live": "off" }, "0");
    let held = false;
    let busy = false;
    let next = null;
    let newest = null; // what the board said of it
    const settle = () => {
        if (held || busy || !newest) return;
        input.value = newest.position;
        text(output, newest.position);
    };
    const send = async () => {
        busy = true;
        while (next !== null) {
            const position = next;
            next = null;
            newest = await act(said, "tbar.move", { number, position }) ?? newest;
        }
        busy = false;
        settle();
    };
    const input = h("input", {
        type: "range", min: 0, max: argument("tbar.move", "position").most, value: 0,
        "aria-label": `T-bar ${number}`,
        oninput: () => {
            next = Number(input.value);
            text(output, next);
            if (!busy) send();
        },
        onpointerdown: () => { held = true; },
        onpointerup: () => { held = false; settle(); },
        onpointercancel: () => { held = false; settle(); },
    });
    const element = h("div", { class: "fader" }, input, h("span", {}, `T-bar ${number}`), output);
    view(`tbar.show ${number}`, (shown) => {
        if (!shown) return;
        element.classList.toggle("locked", Boolean(shown.lock));
        attribute(element, "title", shown.lock ? "The program holds this fader" : null);
        newest = shown;
        settle();
    });
    return element;
}

export const front = {
    id: "panel",
    title: "Front panel",
    needs: () => ["oled.show", "keypad.down", "led.show", "tbar.move"].map(has),
    make(section) {
        const said = speaker();
        const device = h("div", { class: "device" });
        if (has("oled.png")) {
            device.append(h("div", { class: "screens" }, numbers("oled.png", "panel").map(display)));
        }
        if (has("keypad.down")) device.append(keypad(said));
        if (has("tbar.move")) {
            device.append(h("div", { class: "faders" },
                numbers("tbar.move", "number").map((number) => fader(number, said))));
        }
        if (has("led.show")) device.append(leds());
        section.append(device, said);
        if (has("keypad.press")) {
            section.append(h("details", {}, h("summary", {}, "Press any key, hold it, let it bounce"),
                verbForm("keypad.press", { label: "Press" })));
        }
    },
};
