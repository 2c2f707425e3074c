// Boards with a panel, and the browser that looks at them.

import { execFile, spawn } from "node:child_process";
import { once } from "node:events";
import { createRequire } from "node:module";
import { createInterface } from "node:readline";
import { setTimeout as later } from "node:timers/promises";
import { promisify } from "node:util";

const kPatience = 60000; // ms, of whatever has to come

// Packages are outside the tree, where `./dev test panel` puts them.
const { chromium } = createRequire(`${process.env.PANEL_MODULES}/`)("playwright-core");

// Chromium's sandbox is for pages of strangers, and needs rights that root and containers lack.
export const openBrowser = () => chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage"],
});

// Asks until the answer is yes; what was found last is in the complaint.
export async function until(what, found, patience = kPatience) {
    const deadline = Date.now() + patience;
    for (;;) {
        const [yes, seen] = await found();
        if (yes) return seen;
        if (Date.now() > deadline) throw new Error(`${what}: ${JSON.stringify(seen)}`);
        await later(20);
    }
}

// A board of its own on which the program runs, from `vboard run OPTIONS -- PROGRAM`.
export async function startBoard(options, ...program) {
    const http = options.includes("--http") ? [] : ["--http", "0"];
    const child = spawn("vboard", ["run", "--speed", "1", ...http, ...options, "--", ...program],
        { stdio: ["ignore", "ignore", "pipe"] });
    const ended = once(child, "exit").then(([status]) => status);
    const said = [];
    const url = await new Promise((resolve, reject) => {
        createInterface(child.stderr).on("line", (line) => {
            said.push(line);
            const [, address] = /^vboard: panel at (\S+)$/.exec(line) ?? [];
            if (address) resolve(address);
        });
        ended.then((status) => reject(new Error(`vboard ended with ${status}: ${said.join("\n")}`)));
    });
    const ctl = async (...words) => {
        const { stdout } = await promisify(execFile)("vboard", ["ctl", "--board", child.pid, ...words]);
        return stdout.split("\n").filter(Boolean).map((line) => JSON.parse(line));
    };
    return {
        url,
        ended,
        ctl,
        // Waits until a display's text has all that is asked for.
        shows: (...texts) => until(`the display shows ${texts}`, async () => {
            const [{ text }] = await ctl("oled", "show");
            return [texts.every((each) => text.join("\n").includes(each)), text];
        }),
        async end() {
            child.kill("SIGTERM");
            await ended;
        },
    };
}

// A page of the board's panel that has heard of the board; what goes wrong in it, goes into faults.
export async function openPanel(browser, board, options = {}) {
    const page = await browser.newPage({ viewport: { width: 1280, height: 900 }, ...options });
    page.faults = [];
    page.setDefaultTimeout(kPatience);
    page.on("pageerror", (error) => page.faults.push(error.message));
    page.on("console", (message) => {
        // That a verb was refused, or a board is gone, a browser calls an error, too.
        if (message.type() === "error" && !/Failed to load resource|ERR_/.test(message.text())) {
            page.faults.push(message.text());
        }
    });
    await page.goto(board.url);
    await page.waitForSelector("body.running");
    return page;
}
