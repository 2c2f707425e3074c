// What a hand does at the panel, and what the board makes of it: each story on a board of its own.

import assert from "node:assert/strict";
import { mkdtempSync, rmSync } from "node:fs";
import { createServer } from "node:http";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, describe, test } from "node:test";

import { openBrowser, openPanel, startBoard, until } from "./board.js";

let browser;
before(async () => { browser = await openBrowser(); });
after(() => browser?.close());

function story(name, { options = [], program = ["front_panel"] }, tell) {
    test(name, async () => {
        const board = await startBoard(options, ...program);
        try {
            const page = await openPanel(browser, board);
            if (program.at(-1).endsWith("front_panel")) await board.shows("Main menu");
            await tell({ board, page });
            assert.deepEqual(page.faults, []);
            await page.close();
        } finally {
            await board.end();
        }
    });
}

const key = (page, name) => page.getByRole("button", { name: new RegExp(`^${name}, key`) });
const fader = (page, number) => page.getByRole("slider", { name: `T-bar ${number}` });
const form = (page, name) => page.getByRole("form", { name });
const stays = ["sh", "-c", "while :; do sleep 1; done"];

describe("panel", { concurrency: 2 }, () => {
    story("A key that is pressed changes the display", {}, async ({ board, page }) => {
        const picture = page.locator(".oled img").first();
        await page.waitForFunction((img) => img.alt.includes("> Inputs"), await picture.elementHandle());
        const before = await picture.getAttribute("src");
        await key(page, "Down").click();
        await board.shows("> T-bar");
        await page.waitForFunction(([img, old]) => img.src !== old && img.alt.includes("> T-bar"),
            [await picture.elementHandle(), before]);

        await key(page, "Enter").press("Enter"); // by the keyboard
        await board.shows("0%");
        await key(page, "Back").press(" ");
        await board.shows("> T-bar");
        await page.keyboard.press("ArrowUp");
        await board.shows("> Inputs");
        assert.deepEqual((await board.ctl("keypad", "show"))[0].down, []);

        await page.setViewportSize({ width: 390, height: 800 });
        const width = await page.evaluate(() => document.documentElement.scrollWidth);
        assert.ok(width <= 390, `a narrow page is ${width} wide`);
    });

    story("A T-bar follows mouse and keyboard, and the application it", {}, async ({ board, page }) => {
        await key(page, "Down").click();
        await key(page, "Enter").click();
        await board.shows("0%");
        const bar = await fader(page, 0).boundingBox();
        const x = bar.x + bar.width / 2;
        await page.mouse.move(x, bar.y + bar.height - 8);
        await page.mouse.down();
        await page.mouse.move(x, bar.y + bar.height / 2, { steps: 8 });
        await page.mouse.up();
        const half = Number(await fader(page, 0).inputValue());
        assert.ok(half > 400 && half < 620, `half way is ${half}`);
        await board.shows(`${half}`, `${Math.floor(half * 100 / 1023)}%`);

        await fader(page, 0).press("ArrowUp");
        await board.shows(`${half + 1}`);
        await fader(page, 0).press("End");
        await board.shows("100%");
        await board.ctl("tbar", "move", "0", "77"); // from elsewhere
        await page.waitForFunction((input) => input.value === "77", await fader(page, 0).elementHandle());
    });

    test("A stick of the folder is plugged in, listed, and pulled out", async () => {
        const folder = mkdtempSync(join(tmpdir(), "panel-sticks-"));
        const image = join(folder, "greetings.img");
        const board = await startBoard(["--sticks", folder], "sh", "-ec",
            'cd /dev/shm; mkdir texts; echo hello >texts/a; make_stick gpt stick texts; cp stick "$0.new"; mv "$0.new" "$0"; exec sleep 1000', image);
        try {
            const page = await openPanel(browser, board);
            await until("the stick is made", async () => {
                await page.locator("#image").focus();
                await page.locator("#image").blur();
                const names = await page.locator("#image option").allTextContents();
                return [names.some((name) => name.startsWith("greetings.img (")), names];
            });
            await page.locator("#image").selectOption(image);
            await form(page, "Plug a stick in").getByRole("button").click();
            const stick = page.locator(".stick");
            await stick.getByText("sdb1").waitFor();
            assert.equal((await board.ctl("stick", "list"))[0].image, image);
            await page.getByRole("button", { name: "Pull out sdb" }).click();
            await stick.waitFor({ state: "detached" });
            assert.deepEqual(await board.ctl("stick", "list"), []);

            await page.locator("#image").selectOption("");
            await page.getByLabel("Path of the image").fill("/no/such.img");
            await form(page, "Plug a stick in").getByRole("button").click();
            await page.locator("#sticks .said.wrong", { hasText: "/no/such.img" }).waitFor();
            assert.deepEqual(page.faults, []);
        } finally {
            await board.end();
            rmSync(folder, { recursive: true });
        }
    });

    story("The power is cut only when that is confirmed", {}, async ({ board, page }) => {
        await page.getByRole("button", { name: "Power-cycle…" }).click();
        await page.getByRole("dialog").getByRole("button", { name: "Power-cycle" }).click();
        await page.locator("#status", { hasText: "Running, start 2" }).waitFor();
        await page.locator(".trace", { hasText: "start 2 of the board" }).waitFor();

        const dialog = page.getByRole("dialog", { name: "Cut the power?" });
        await page.getByRole("button", { name: "Cut the power…" }).click();
        await dialog.getByRole("button", { name: "Cancel" }).click();
        await dialog.waitFor({ state: "detached" });
        assert.equal((await board.ctl("power", "show"))[0].start, 2);
        await page.getByRole("button", { name: "Cut the power…" }).click();
        await dialog.getByRole("button", { name: "Cut the power" }).click();
        assert.equal(await board.ended, 137);
        await page.locator("#status", { hasText: "The power was cut: the board is off" }).waitFor();
        assert.equal(await page.locator(".said.wrong").count(), 0);
        await page.getByRole("button", { name: "Restart" }).click();
        await page.locator("#power .said.wrong", { hasText: "does not answer" }).waitFor();
    });

    story("A fault strikes, and the trace shows what is looked for", {
        program: ["sh", "-c", `{ halctl gpio config 7; until [ "$(halctl gpio get 7)" = 1 ]; do sleep 0.2; done
            for i in $(seq 500); do : </dev/drvgpio; done; } & exec front_panel`],
    }, async ({ board, page }) => {
        const add = form(page, "Add a fault");
        await add.getByLabel("Node").fill("/dev/pwm-fan*");
        await add.getByLabel("Operation").fill("ioctl");
        await add.getByLabel("What happens").fill("EWRONG");
        await add.getByRole("button", { name: "Add" }).click();
        await add.locator(".said.wrong", { hasText: "EWRONG" }).waitFor();
        await page.locator("#filter").fill("fault pwm-fan");
        await add.getByLabel("What happens").fill("EIO");
        await add.getByLabel("When").fill("times=2");
        await add.getByRole("button", { name: "Add" }).click();
        const events = page.locator(".trace li");
        await events.nth(1).waitFor(); // it strikes twice
        for (const words of await events.allTextContents()) assert.match(words, /fault.*pwm-fan/);

        await page.locator("#filter").fill("ioctl pwm-fan -EIO");
        await page.locator("#group").selectOption("calls");
        await events.first().waitFor();
        for (const words of await events.allTextContents()) {
            assert.match(words, /ioctl.*pwm-fan/);
            assert.doesNotMatch(words, /EIO/);
        }
        await page.getByRole("button", { name: "Pause" }).click();
        await page.locator("#filter").fill("a remark");
        await page.locator("#group").selectOption("all");
        await board.ctl("trace", "note", "a remark, made in the meantime");
        await page.locator("#trace", { hasText: /paused, [1-9]\d* wait/ }).waitFor();
        assert.equal(await events.count(), 0);
        await page.getByRole("button", { name: "Go on" }).click();
        await events.first().waitFor();

        await page.locator("#filter").fill("");
        const before = parseInt(await page.locator("#trace > p").textContent(), 10);
        await board.ctl("gpio", "drive", "7", "1"); // a thousand calls
        await page.waitForFunction((seen) =>
            parseInt(document.querySelector("#trace > p").textContent, 10) >= seen, before + 1000);
        assert.equal(await events.count(), 400);

        await page.getByRole("button", { name: /^Remove fault/ }).click();
        await page.getByText("Nothing goes wrong by itself.").waitFor();
    });

    story("A page of another origin can do nothing", { program: stays }, async ({ board, page }) => {
        const stranger = createServer((_, answer) => {
            answer.setHeader("Content-Type", "text/html");
            answer.end(`<form method="post" enctype="text/plain" action="${board.url}ask">
                <input name='{"verb":"gpio.drive","line":7,"level":1,"x":"' value='"}'></form>`);
        }).listen(0, "localhost");
        await new Promise((done) => { stranger.on("listening", done); });
        const other = await browser.newPage();
        try {
            await other.goto(`http://localhost:${stranger.address().port}/`);
            const came = await other.evaluate(async (url) => {
                const body = '{"verb":"gpio.drive","line":7,"level":1}';
                const outcome = (promise) => promise.then((answer) => answer.type, () => "refused");
                const json = { "Content-Type": "application/json" };
                const stream = new EventSource(`${url}events`);
                return Promise.all([
                    outcome(fetch(`${url}ask`, { method: "POST", headers: json, body })),
                    outcome(fetch(`${url}ask`, { method: "POST", mode: "no-cors", body })),
                    outcome(fetch(`${url}verbs`)),
                    new Promise((told) => {
                        stream.onopen = () => told("open");
                        stream.onerror = () => told("refused");
                    }),
                ]);
            }, board.url);
            assert.deepEqual(came, ["refused", "opaque", "refused", "refused"]);
            const [answer] = await Promise.all([
                other.waitForResponse((response) => response.url() === `${board.url}ask`),
                other.evaluate(() => document.querySelector("form").submit()),
            ]);
            assert.equal(answer.status(), 403);
            assert.deepEqual(await board.ctl("trace", "read", "0", "line"), []);
            assert.equal((await board.ctl("gpio", "show", "7"))[0].level, 0);
        } finally {
            await other.close();
            stranger.close();
        }
    });

    story("The page and vboard ctl drive a board side by side", {
        options: ["--http", "127.0.0.2:0"], // for which it takes a token
        program: ["sh", "-c", "halctl gpio config 7; exec sleep 1000"],
    }, async ({ board, page }) => {
        const level = page.getByRole("switch", { name: "Level of line 7" });
        const shown = (wanted) => page.locator(`#lines [role=switch][aria-checked=${wanted}]`).waitFor();
        await level.waitFor();
        const wait = board.ctl("gpio", "watch", "7").catch((error) => error); // ends with the board
        for (let turn = 0; turn < 10; ++turn) {
            await board.ctl("gpio", "drive", "7", "1");
            await shown(true);
            await level.click();
            await shown(false);
            assert.equal((await board.ctl("gpio", "show", "7"))[0].level, 0);
        }
        const levels = (await board.ctl("trace", "read", "0", "line")).map((event) => event.level);
        assert.deepEqual(levels, Array.from({ length: 20 }, (_, at) => (at + 1) % 2));
        await page.locator(".trace li", { hasText: "bank=gpio line=7" }).nth(19).waitFor();

        await page.locator("#verbs summary", { hasText: "fpga" }).click();
        const poke = form(page, "fpga.poke");
        await poke.getByLabel("address").fill("0x10");
        await poke.getByLabel("bytes").fill("c0ffee");
        await poke.getByRole("button").click();
        await poke.getByText("Done.").waitFor();
        assert.deepEqual(await board.ctl("fpga", "peek", "16", "3"), ["c0ffee"]);
        await board.ctl("power", "cut").catch(() => {});
        await wait;
    });
});
