// The video-timing generator: the phase of its frames against the reference, over board time.

import { has, view } from "./board.js";
import { facts, h, hertz, svg, text } from "./dom.js";
import { verbForm } from "./forms.js";

const kSpan = 60; // seconds shown
const kApart = 0.2; // seconds, at least, from point to point
const kFrame = { left: 54, top: 10, right: 386, bottom: 180 };
const kUnits = [[1e9, "s"], [1e6, "ms"], [1e3, "µs"], [1, "ns"]];

// The least of 1, 2, 5, 10... that holds a value.
function nice(value) {
    const power = 10 ** Math.floor(Math.log10(value));
    return [1, 2, 5, 10].map((step) => step * power).find((step) => step >= value * 0.999);
}

function plot() {
    const { left, top, right, bottom } = kFrame;
    const middle = (top + bottom) / 2;
    const points = []; // {at, phase}, phase null where there is none
    const grid = svg("path", { class: "grid" });
    const line = svg("path", { class: "curve", "clip-path": "url(#frame)" });
    const label = (props) => svg("text", props);
    const ys = [-1, -0.5, 0, 0.5, 1].map((part) => ({ part,
        y: middle - part * (bottom - top) / 2, text: label({ x: left - 6, "text-anchor": "end" }) }));
    const xs = [0, 15, 30, 45, 60].map((back) => ({ back,
        x: right - back / kSpan * (right - left), text: label({ y: bottom + 16, "text-anchor": "middle" }) }));
    ys.forEach((tick) => tick.text.setAttribute("y", tick.y + 4));
    xs.forEach((tick) => {
        tick.text.setAttribute("x", tick.x);
        text(tick.text, tick.back === 0 ? "now" : `−${tick.back} s`);
    });
    grid.setAttribute("d", ys.map((tick) => `M${left} ${tick.y}H${right}`).join("") +
        xs.map((tick) => `M${tick.x} ${top}V${bottom}`).join(""));
    const picture = svg("svg", { viewBox: "0 0 400 218", role: "img", class: "plot", "aria-label": "Phase over time" },
        svg("clipPath", { id: "frame" }, svg("rect", { x: left, y: top, width: right - left, height: bottom - top })),
        grid, line, ys.map((tick) => tick.text), xs.map((tick) => tick.text),
        label({ x: (left + right) / 2, y: 213, "text-anchor": "middle", class: "axis" }));
    text(picture.lastElementChild, "board time");
    const unitLabel = svg("text", { class: "axis", transform: `translate(12 ${middle}) rotate(-90)`, "text-anchor": "middle" });
    picture.append(unitLabel);

    return {
        element: picture,
        add(at, phase) {
            if (points.length > 0 && at < points[points.length - 1].at) points.length = 0; // a new start
            points.push({ at, phase });
            while (points[0].at < at - kSpan) points.shift();
            const most = Math.max(...points.map((point) => Math.abs(point.phase ?? 0)), 1);
            const scale = nice(most);
            const [per, unit] = kUnits.find(([size]) => scale >= size);
            ys.forEach((tick) => text(tick.text, String(tick.part * scale / per).replace("-", "−")));
            text(unitLabel, `phase, ${unit}`);
            let pen = "M";
            line.setAttribute("d", points.map((point) => {
                if (point.phase === null) {
                    pen = "M";
                    return "";
                }
                const x = right - (at - point.at) / kSpan * (right - left);
                const y = middle - point.phase / scale * (bottom - top) / 2;
                const part = `${pen}${x.toFixed(1)} ${y.toFixed(1)}`;
                pen = "L";
                return part;
            }).join(""));
        },
    };
}

const ppm = (value) => `${value.toFixed(3)} ppm`;

export const genlock = {
    id: "genlock",
    title: "Genlock",
    needs: () => [has("vgen.show")],
    make(section) {
        const curve = plot();
        const none = h("p", { class: "quiet reserved" });
        const values = facts({ phase: "Phase", frame: "Frame rate", clock: "Clock as set",
            true: "Clock as it is", raster: "Raster", offset: "Oscillator is off by" });
        let seconds = 0;
        let newest = null;
        view("clock.show", (clock) => {
            if (!clock) return;
            if (Math.abs(clock.seconds - seconds) < kApart) return;
            seconds = clock.seconds;
            curve.add(seconds, newest);
        });
        view("vgen.show", (shown) => {
            newest = shown?.phase_ns ?? null;
            text(none, newest === null ? "No phase yet: no program has told the generator its reference rate." : "");
            values.update(shown && {
                phase: newest === null ? "–" : `${(newest / 1000).toFixed(3)} µs`,
                frame: `${shown.frame_hz.toFixed(4)} Hz`,
                clock: `${shown.clock_hz.toLocaleString("en")} Hz`,
                true: `${hertz(shown.true_clock_hz)} Hz`,
                raster: `${shown.h_total} × ${shown.v_total}`,
                offset: ppm(shown.offset_ppm),
            });
        });
        section.append(curve.element, none, values.element,
            h("details", {}, h("summary", {}, "Disturb clock, reference and stamps"),
                [["set", "Set"], ["displace", "Displace a stamp"], ["miss", "Miss frames"],
                    ["delay", "Delay a frame"]].map(([verb, label]) => verbForm(`vgen.${verb}`, { label }))));
    },
};
