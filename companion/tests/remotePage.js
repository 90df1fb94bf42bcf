// The remote in a browser, for the tests that look at it or use it.

import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { after, before } from 'node:test';

import { BridgeHome, snapshot } from './bridgeHome.js';
import { Chromium } from './chromium.js';
import { faintTexts, smallTargets, tooWide } from './pageAudit.js';

export const phone = { width: 390, height: 844 };
export const session = { id: 's-1', cwd: '/home/me/sonra', source: 'claude-code', branch: 'main' };
/** In the middle of a sound that is long enough for the slowest machine to see it go on. */
export const longSound = { elapsed: 17, duration: 44 };
export const history = { kind: 'history', messageIndex: 3, totalKnown: 12, chunkIndex: 1, totalChunks: 5 };

let browser;

/** For the tests of the file that calls it. */
export function useBrowser() {
  before(async () => {
    browser = await Chromium.start();
  });
  after(() => browser?.close());
}

export const newPage = (context) => browser.newPage(context);

/** Keeps a picture where somebody wants to look at it. */
export async function keep(page, name) {
  const folder = process.env.SONRA_SHOTS;
  if (!folder) return;
  await new Promise((resolve) => setTimeout(resolve, 350));
  fs.mkdirSync(folder, { recursive: true });
  fs.writeFileSync(path.join(folder, `remote-${name}.png`), await page.screenshot());
}

export async function setUp(t, { state = {}, screen = phone, port = 0 } = {}) {
  const home = await BridgeHome.start(t, { port, state: { sessions: [session], volume: 80, ...state } });
  const commands = await home.listen();
  const page = await browser.newPage(t);
  await page.screen(screen);
  await page.open(home.origin);
  return { home, commands, page };
}

export async function pairIn(home, page) {
  const { code } = home.mint();
  await page.waitFor('document.activeElement?.id === "code"');
  await page.type(code);
  await page.tap('#pair-button');
  await page.waitFor('!document.querySelector("#remote").hidden');
}

export async function paired(t, options) {
  const all = await setUp(t, options);
  all.home.write('now-playing.json', snapshot());
  await pairIn(all.home, all.page);
  await all.page.waitFor('document.querySelector("#words span")');
  return all;
}

export const text = (selector) => `document.querySelector(${JSON.stringify(selector)}).textContent`;
export const whole = (selector) => `${text(selector)}.trim()`;

export async function assertSound(page, what) {
  await page.waitFor('document.getAnimations().every((each) => !(each instanceof CSSTransition))');
  const { faint, count } = await page.value(faintTexts());
  assert.deepEqual(faint, [], `${what}: contrast`);
  assert.ok(count >= 4, `${what}: ${count} texts`);
  assert.deepEqual(await page.value(smallTargets()), [], `${what}: targets`);
  assert.deepEqual(await page.value(tooWide), [], `${what}: width`);
}
