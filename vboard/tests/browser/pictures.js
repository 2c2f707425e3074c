// pictures.js FOLDER --sticks STICKS -- PROGRAM: pictures of the panel as a visitor finds it, wide
// and narrow, light and dark. What a browser says is wrong with the page is said here.

import { join } from "node:path";

import { openBrowser, openPanel, startBoard, until } from "./board.js";

const kLooks = [
    ["wide-light", { width: 1280, height: 1000 }, "light", "body"],
    ["wide-dark", { width: 1280, height: 1000 }, "dark", "#genlock"],
    ["narrow-light", { width: 390, height: 844 }, "light", "body"],
    ["narrow-dark", { width: 390, height: 844 }, "dark", "#genlock"],
];

const [folder, ...rest] = process.argv.slice(2);
const end = rest.indexOf("--");
const board = await startBoard(rest.slice(0, end), ...rest.slice(end + 1));
const browser = await openBrowser();
try {
    await board.shows("Main menu");
    await until("the computer was typed to", async () => {
        const [typed] = await board.ctl("host", "typed");
        return [typed.text.endsWith("\n"), typed];
    });
    await board.ctl("stick", "plug", join(rest[rest.indexOf("--sticks") + 1], "texts-and-pictures.img"));
    await board.ctl("gsv20xx", "plug", "0", "1");
    await board.ctl("gpio", "drive", "7", "1");
    await board.ctl("fault", "add", "/dev/drvgpio:ioctl:delay=20:probability=0.1:seed=1");
    const pages = [];
    for (const [name, viewport, colorScheme, at] of kLooks) {
        const page = await openPanel(browser, board, { viewport, colorScheme, deviceScaleFactor: 1 });
        await page.locator("#group").selectOption("calls");
        await page.locator("#filter").fill("-/sys -/proc -vgen");
        await page.locator("#filter").blur();
        pages.push({ name, page, at });
    }
    await board.ctl("vgen", "delay", "40000"); // which makes the plot worth a look
    await board.ctl("keypad", "press", "1");
    await board.ctl("tbar", "move", "0", "640", "2000");
    const plotted = async ({ page }) => page.locator(".curve").evaluate((path) =>
        path.getBBox().width > 120); // some twenty seconds
    await until("the plots have something to show", async () => {
        const widths = await Promise.all(pages.map(plotted));
        return [widths.every(Boolean), widths];
    }, 60000);
    await board.ctl("keypad", "press", "2");
    await board.ctl("tbar", "move", "0", "700");
    await board.shows("700");
    for (const { name, page, at } of pages) {
        await page.locator(".trace li", { hasText: "tbar" }).last().waitFor();
        await page.locator(at).evaluate((element) => element.scrollIntoView({ behavior: "instant" }));
        await page.screenshot({ path: join(folder, `panel-${name}.png`) });
        if (page.faults.length > 0) throw new Error(`${name}: ${page.faults}`);
    }
} finally {
    await browser.close();
    await board.end();
}
