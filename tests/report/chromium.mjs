// SPDX-License-Identifier: Apache-2.0
//
// Drives a headless Chromium over its debugging pipe: no port, no packages.
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";

const SECONDS_FOR_A_CALL = 30;

export class Chromium {
  constructor(program) {
    this.folder = mkdtempSync(join(tmpdir(), "tavo-chromium-"));
    this.process = spawn(program, [
      "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run", "--hide-scrollbars",
      "--disable-background-networking", "--disable-component-update", "--disable-sync", "--proxy-server=127.0.0.1:9",
      `--user-data-dir=${this.folder}`, "--remote-debugging-pipe", "about:blank",
    ], { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
    this.calls = new Map();
    this.listeners = [];
    this.nextId = 1;
    let buffered = Buffer.alloc(0);
    this.process.stdio[4].on("data", (bytes) => {
      buffered = Buffer.concat([buffered, bytes]);
      for (let end = buffered.indexOf(0); end >= 0; end = buffered.indexOf(0)) {
        this.take(JSON.parse(buffered.subarray(0, end).toString()));
        buffered = buffered.subarray(end + 1);
      }
    });
    this.process.on("exit", () => {
      for (const call of this.calls.values()) {
        call.reject(new Error("Chromium ended"));
      }
    });
  }

  take(message) {
    const call = this.calls.get(message.id);
    if (call) {
      this.calls.delete(message.id);
      clearTimeout(call.timer);
      if (message.error) {
        call.reject(new Error(message.error.message));
      } else {
        call.resolve(message.result);
      }
    } else {
      this.listeners.forEach((listener) => listener(message));
    }
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.nextId++;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`no answer to ${method}`)), SECONDS_FOR_A_CALL * 1000);
      this.calls.set(id, { resolve, reject, timer });
      this.process.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    });
  }

  async open({ width = 1280, height = 900, dark = false } = {}) {
    const { targetId } = await this.send("Target.createTarget", { url: "about:blank" });
    const { sessionId } = await this.send("Target.attachToTarget", { targetId, flatten: true });
    const page = new Page(this, sessionId);
    for (const domain of ["Page", "Runtime", "Log", "Network"]) {
      await page.send(`${domain}.enable`);
    }
    await page.send("Emulation.setDeviceMetricsOverride", { width, height, deviceScaleFactor: 1, mobile: false });
    await page.send("Emulation.setEmulatedMedia", { features: [{ name: "prefers-color-scheme", value: dark ? "dark" : "light" }] });
    return page;
  }

  async close() {
    const ended = new Promise((resolve) => this.process.on("exit", resolve));
    await this.send("Browser.close").catch(() => this.process.kill());
    await ended;
    rmSync(this.folder, { recursive: true, force: true, maxRetries: 5 });
  }
}

class Page {
  constructor(browser, sessionId) {
    this.browser = browser;
    this.sessionId = sessionId;
    this.errors = []; // whatever the console, the runtime or the page's policy complains of
    this.requests = [];
    browser.listeners.push((message) => {
      if (message.sessionId !== sessionId) {
        return;
      }
      const { method, params } = message;
      if (method === "Runtime.exceptionThrown") {
        this.errors.push(params.exceptionDetails.exception?.description || params.exceptionDetails.text);
      } else if (method === "Runtime.consoleAPICalled" && ["error", "warning", "assert"].includes(params.type)) {
        this.errors.push(params.args.map((arg) => arg.value ?? arg.description).join(" "));
      } else if (method === "Log.entryAdded" && ["error", "warning"].includes(params.entry.level)) {
        this.errors.push(params.entry.text);
      } else if (method === "Network.requestWillBeSent") {
        this.requests.push(params.request.url.slice(0, 100));
      }
    });
  }

  send(method, params) {
    return this.browser.send(method, params, this.sessionId);
  }

  // Loads the page and waits until it has drawn itself.
  async load(url) {
    await this.send("Page.navigate", { url });
    for (let i = 0; i < 200; ++i) {
      if (await this.evaluate("document.readyState === 'complete' && document.documentElement.dataset.ready === 'true'").catch(() => false)) {
        return;
      }
      await new Promise((resolve) => setTimeout(resolve, 50));
    }
    throw new Error(`${url} did not draw itself: ${this.errors.join("; ")}`);
  }

  async evaluate(expression) {
    const { result, exceptionDetails } = await this.send("Runtime.evaluate", { expression, returnByValue: true, awaitPromise: true });
    if (exceptionDetails) {
      throw new Error(exceptionDetails.exception?.description || exceptionDetails.text);
    }
    return result.value;
  }

  async press(key, text) {
    const code = { Tab: 9, Enter: 13 }[key] ?? 0;
    await this.send("Input.dispatchKeyEvent", { type: text || key === "Enter" ? "keyDown" : "rawKeyDown", key, code: key, windowsVirtualKeyCode: code, text: text ?? (key === "Enter" ? "\r" : undefined) });
    await this.send("Input.dispatchKeyEvent", { type: "keyUp", key, code: key, windowsVirtualKeyCode: code });
  }

  async type(text) {
    await this.send("Input.insertText", { text });
  }

  // A PNG of the page, or of the element of a selector.
  async screenshot(selector) {
    const box = await this.evaluate(selector
      ? `(() => { const r = document.querySelector(${JSON.stringify(selector)}).getBoundingClientRect(); return { x: r.x + scrollX, y: r.y + scrollY, width: r.width, height: r.height }; })()`
      : "({ x: 0, y: 0, width: document.documentElement.clientWidth, height: document.documentElement.scrollHeight })");
    const { data } = await this.send("Page.captureScreenshot", { format: "png", captureBeyondViewport: true, clip: { ...box, scale: 1 } });
    return Buffer.from(data, "base64");
  }
}
