import assert from 'node:assert/strict';
import test from 'node:test';

import { snapshot } from './bridgeHome.js';
import {
  assertSound, history, keep, longSound, paired, pairIn, phone, session, setUp, text, useBrowser, whole,
} from './remotePage.js';

useBrowser();

const looks = [
  ['playing', { ...phone, scheme: 'dark' }, {}],
  ['playing-light', { ...phone, scheme: 'light' }, {}],
  ['history', { ...phone, scheme: 'dark' }, { cursor: history, newLiveCount: 2, state: 'paused' }],
  ['history-light', { ...phone, scheme: 'light' }, { cursor: history, newLiveCount: 2, state: 'paused' }],
  ['landscape', { width: 844, height: 390, scheme: 'dark' }, {}],
  ['landscape-light', { width: 844, height: 390, scheme: 'light' }, {}],
  ['talk-back', { ...phone, scheme: 'dark' }, {}, ['inject']],
  ['talk-back-light', { ...phone, scheme: 'light' }, {}, ['inject']],
  ['talk-back-landscape', { width: 844, height: 390, scheme: 'dark' }, {}, ['inject']],
  ['small', { width: 320, height: 568, scheme: 'dark' }, {}, ['inject']],
  ['high-contrast-light', { ...phone, scheme: 'light', more: [{ name: 'prefers-contrast', value: 'more' }] }, {}],
  ['idle-light', { ...phone, scheme: 'light' }, { state: 'idle', snippet: '', duration: 0, elapsed: 0 }],
];

test('it looks right on every screen', async (t) => {
  const { home, page } = await paired(t);
  for (const [index, [name, screen, changes, remoteCommands = []]] of looks.entries()) {
    await page.screen(screen);
    home.write('state.json', { sessions: [session], volume: 80, remoteCommands });
    await page.waitFor(`document.querySelector("#talk").hidden === ${remoteCommands.length === 0}`);
    // The number of parts tells this picture from the one before.
    const cursor = { ...snapshot().cursor, ...changes.cursor, totalChunks: 5 + index };
    home.write('now-playing.json', snapshot({ ...changes, cursor }));
    await page.waitFor(`${whole('#counter')} === "2/${5 + index}"`);
    assert.equal(await page.value('document.querySelector("#caption").dataset.kind'), changes.state ?? 'playing');
    await keep(page, name);
    await assertSound(page, name);
  }
});

test('every agent’s colours can be read, dark and light', async (t) => {
  const { home, page } = await paired(t);
  for (const [source, chip] of [
    ['codex', 'CDX'],
    ['gemini', 'GEM'],
    ['aider', 'AID'],
    ['cline', 'CLN'],
    ['opencode', 'OC'],
    ['pi', 'PI'],
  ]) {
    home.write('state.json', { sessions: [{ ...session, source }], volume: 80, remoteCommands: ['inject'] });
    home.write('now-playing.json', snapshot());
    await page.waitFor(`${text('#chip')} === "${chip}" && document.querySelector("#words .active")`);
    for (const scheme of ['dark', 'light']) {
      await page.screen({ ...phone, scheme });
      if (scheme === 'dark') await keep(page, `theme-${source}`);
      await assertSound(page, `${source} ${scheme}`);
    }
  }
});

test('large type moves nothing out of reach', async (t) => {
  const { home, page } = await setUp(t);
  await page.send('Page.setFontSizes', { fontSizes: { standard: 28, fixed: 24 } });
  await page.open(home.origin);
  await page.waitFor('getComputedStyle(document.documentElement).fontSize === "28px"');
  await keep(page, 'pair-large-type');
  await assertSound(page, 'pairing in large type');
  home.write('now-playing.json', snapshot());
  await pairIn(home, page);
  await page.waitFor('document.querySelector("#words .active")');
  await keep(page, 'large-type');
  await assertSound(page, 'large type');
  assert.ok(await page.value('document.querySelector("#caption").clientHeight >= 150'));
  await page.value('scrollTo(0, 1e6)');
  await keep(page, 'large-type-below');
  assert.ok(await page.value('document.querySelector("#mute").getBoundingClientRect().bottom <= innerHeight'));
});

test('with reduced motion nothing glides', async (t) => {
  const { home, page } = await paired(t, {
    screen: { ...phone, more: [{ name: 'prefers-reduced-motion', value: 'reduce' }] },
  });
  home.write('now-playing.json', snapshot(longSound));
  await page.waitFor(`${text('#duration')} === "0:44"`);
  const active = '[...document.querySelectorAll("#words span")].findIndex((each) => each.className === "active")';
  const first = await page.value(active);
  await page.waitFor(`${active} > ${first}`);
  assert.equal(await page.value('document.getAnimations().length'), 0);
});
