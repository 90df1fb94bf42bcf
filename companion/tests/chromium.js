// A headless Chromium, driven over two pipes by its own protocol: messages of JSON that end with a zero
// byte. It has a profile of its own.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

const answerLimit = 20_000;
const flags = [
  '--headless=new',
  '--no-sandbox',
  '--remote-debugging-pipe',
  '--disable-gpu',
  '--disable-dev-shm-usage',
  '--no-first-run',
  '--hide-scrollbars',
  '--force-color-profile=srgb',
  '--disable-component-update',
  '--disable-sync',
  '--mute-audio',
];

export class Chromium {
  #process;
  #rest = '';
  #next = 1;
  #waiting = new Map();
  #listeners = new Set();

  static async start() {
    const browser = new Chromium(fs.mkdtempSync(path.join(os.tmpdir(), 'sn-browser-')));
    await browser.send('Browser.getVersion');
    return browser;
  }

  constructor(home) {
    this.home = home;
    const environment = { ...process.env, HOME: home, XDG_CONFIG_HOME: home, XDG_CACHE_HOME: home };
    this.#process = spawn('chromium', [...flags, `--user-data-dir=${home}/profile`, 'about:blank'], {
      env: environment,
      stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'],
    });
    this.#process.on('error', (error) => this.#failAll(new Error(`chromium cannot be started: ${error.message}`)));
    this.#process.on('exit', () => this.#failAll(new Error('chromium has ended')));
    this.#process.stdio[3].on('error', () => {});
    this.#process.stdio[4].setEncoding('utf8').on('data', (text) => this.#take(text));
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.#next;
    this.#next += 1;
    this.#process.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => reject(new Error(`${method}: no answer`)), answerLimit);
      this.#waiting.set(id, { resolve, reject, method, timer });
    });
  }

  onEvent(listener) {
    this.#listeners.add(listener);
  }

  /**
   * A page that shares no storage with another's, until the test ends.
   * @param {import('node:test').TestContext} context
   */
  async newPage(context) {
    const { browserContextId } = await this.send('Target.createBrowserContext');
    context.after(() => this.send('Target.disposeBrowserContext', { browserContextId }));
    const { targetId } = await this.send('Target.createTarget', { url: 'about:blank', browserContextId });
    const { sessionId } = await this.send('Target.attachToTarget', { targetId, flatten: true });
    const page = new Page(this, sessionId);
    for (const domain of ['Page', 'Runtime', 'Log', 'Network']) await page.send(`${domain}.enable`);
    return page;
  }

  #take(text) {
    const messages = (this.#rest + text).split('\0');
    this.#rest = messages.pop();
    for (const message of messages.map((each) => JSON.parse(each))) {
      const waiting = this.#waiting.get(message.id);
      if (!waiting) {
        for (const listener of this.#listeners) listener(message);
        continue;
      }
      this.#waiting.delete(message.id);
      clearTimeout(waiting.timer);
      if (message.error) waiting.reject(new Error(`${waiting.method}: ${message.error.message}`));
      else waiting.resolve(message.result);
    }
  }

  #failAll(error) {
    for (const { reject, timer } of this.#waiting.values()) {
      clearTimeout(timer);
      reject(error);
    }
    this.#waiting.clear();
  }

  async close() {
    if (this.#process.pid && this.#process.exitCode === null && this.#process.signalCode === null) {
      const ended = once(this.#process, 'exit');
      this.send('Browser.close').catch(() => {});
      const timer = setTimeout(() => this.#process.kill('SIGKILL'), 5000);
      await ended;
      clearTimeout(timer);
    }
    fs.rmSync(this.home, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
  }
}

export class Page {
  /** What the page complained about, and where it went. */
  complaints = [];
  requests = [];

  constructor(browser, sessionId) {
    this.browser = browser;
    this.sessionId = sessionId;
    browser.onEvent((event) => {
      if (event.sessionId === sessionId) this.#note(event);
    });
  }

  send(method, params) {
    return this.browser.send(method, params, this.sessionId);
  }

  async screen({ width, height, scale = 2, scheme = 'dark', more = [] }) {
    await this.send('Emulation.setDeviceMetricsOverride', {
      width,
      height,
      deviceScaleFactor: scale,
      mobile: true,
      screenOrientation:
        width > height ? { type: 'landscapePrimary', angle: 90 } : { type: 'portraitPrimary', angle: 0 },
    });
    await this.send('Emulation.setEmulatedMedia', {
      features: [{ name: 'prefers-color-scheme', value: scheme }, ...more],
    });
  }

  async open(url) {
    await this.send('Page.navigate', { url });
    await this.waitFor('document.readyState === "complete"');
  }

  /** The value of an expression in the page. */
  async value(expression) {
    const { result, exceptionDetails } = await this.send('Runtime.evaluate', {
      expression,
      awaitPromise: true,
      returnByValue: true,
      userGesture: true,
    });
    if (exceptionDetails) throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    return result.value;
  }

  async waitFor(expression, limit = 10_000) {
    const deadline = performance.now() + limit;
    for (;;) {
      const value = await this.value(expression).catch(() => undefined);
      if (value) return value;
      if (performance.now() > deadline) throw new Error(`the page never came to: ${expression}`);
      await new Promise((resolve) => setTimeout(resolve, 25));
    }
  }

  /** A finger's tap in the middle of the element, through the browser's own hit test. */
  async tap(selector) {
    const point = await this.value(`(() => {
      const element = document.querySelector(${JSON.stringify(selector)});
      element.scrollIntoView({ block: 'nearest' });
      const box = element.getBoundingClientRect();
      return { x: box.x + box.width / 2, y: box.y + box.height / 2 };
    })()`);
    const mouse = { ...point, button: 'left', clickCount: 1 };
    await this.send('Input.dispatchMouseEvent', { type: 'mousePressed', ...mouse });
    await this.send('Input.dispatchMouseEvent', { type: 'mouseReleased', ...mouse });
  }

  async type(text) {
    await this.send('Input.insertText', { text });
  }

  async press(key, code = key, keyCode = 0) {
    const event = { key, code, windowsVirtualKeyCode: keyCode };
    // Forms and buttons act on the character, not on the key.
    const down = key === 'Enter' ? { type: 'keyDown', text: '\r' } : { type: 'rawKeyDown' };
    await this.send('Input.dispatchKeyEvent', { ...down, ...event });
    await this.send('Input.dispatchKeyEvent', { type: 'keyUp', ...event });
  }

  /** What a screen reader finds: role, name and the rest of every node that isn't left out. */
  async accessibility() {
    const { nodes } = await this.send('Accessibility.getFullAXTree');
    return nodes
      .filter((node) => !node.ignored)
      .map((node) => ({
        role: node.role?.value,
        name: node.name?.value ?? '',
        value: node.value?.value,
        properties: Object.fromEntries((node.properties ?? []).map(({ name, value }) => [name, value.value])),
      }));
  }

  async screenshot() {
    const { data } = await this.send('Page.captureScreenshot', { format: 'png' });
    return Buffer.from(data, 'base64');
  }

  #note({ method, params }) {
    if (method === 'Runtime.exceptionThrown') this.complaints.push(params.exceptionDetails.exception?.description);
    if (method === 'Log.entryAdded' && ['error', 'warning'].includes(params.entry.level))
      this.complaints.push(params.entry.text);
    if (method === 'Runtime.consoleAPICalled') this.complaints.push(params.args.map((each) => each.value).join(' '));
    if (method === 'Network.requestWillBeSent') this.requests.push(params.request);
  }
}
