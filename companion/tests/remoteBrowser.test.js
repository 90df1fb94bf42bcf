import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import test from 'node:test';

import { snapshot, words } from './bridgeHome.js';
import { quietPort } from './bridgePorts.js';
import { until } from './home.js';
import {
  assertSound, history, keep, longSound, newPage, paired, pairIn, phone, session, setUp, text, useBrowser, whole,
} from './remotePage.js';

useBrowser();

/** Of what was said, and by whom, in the document of a device that isn't paired any more. */
async function assertNothingLeft(page) {
  assert.equal(await page.value(text('#words')), '');
  assert.equal(await page.value(text('#spoken')), '');
  assert.equal(await page.value(text('#session')), 'Sonra');
}

test('a phone pairs, and a wrong code does not', async (t) => {
  const { home, page } = await setUp(t);
  await page.waitFor('document.activeElement?.id === "code"');
  await keep(page, 'pair');
  await assertSound(page, 'pairing');
  const { code } = home.mint({ random: () => 123456 });
  await page.type('12 34x');
  assert.equal(await page.value('document.querySelector("#code").value'), '1234');
  await page.tap('#pair-button');
  await page.waitFor(`${text('#pair-problem')} === "Enter the six digits."`);
  await page.value('document.querySelector("#code").value = ""');
  await page.type('000000');
  await page.tap('#pair-button');
  await page.waitFor(`${text('#pair-problem')}.startsWith("That code is wrong")`);
  assert.equal(await page.value('document.querySelector("#remote").hidden'), true);
  await keep(page, 'pair-wrong');
  await assertSound(page, 'a refused code');
  await new Promise((resolve) => setTimeout(resolve, 1000));
  // The digits that were refused are selected, so that typing replaces them.
  await page.type(code);
  await page.value('document.querySelector("#label").value = "Kitchen phone"');
  await page.press('Enter', 'Enter', 13);
  await page.waitFor('!document.querySelector("#remote").hidden');
  assert.equal(home.read('bridge-tokens.json').tokens[0].label, 'Kitchen phone');
  assert.equal(await page.value('location.href'), `${home.origin}/`);
});

test('the caption moves with what is spoken', async (t) => {
  const { home, page } = await paired(t);
  assert.equal((await page.value(text('#words'))).trim(), words);
  home.write('now-playing.json', snapshot(longSound));
  await page.waitFor(`${text('#duration')} === "0:44"`);
  const active = `[...document.querySelectorAll("#words span")].findIndex((each) => each.className === "active")`;
  const first = await page.value(active);
  assert.ok(first > 5, `word ${first}`);
  // It goes on by itself: nothing is written meanwhile.
  await page.waitFor(`${active} > ${first} + 1`);
  await page.waitFor('Number(/scaleX\\((.*)\\)/.exec(document.querySelector("#bar-fill").style.transform)[1]) > 0.4');
  assert.ok(await page.value('[...document.querySelectorAll("#words .past")].length > 5'));
  home.write('now-playing.json', snapshot({ snippet: 'Something else now.', elapsed: 0, duration: 3, rev: 2 }));
  await page.waitFor(`${whole('#words')} === "Something else now."`);
  await page.waitFor(`${active} === 2`);
  assert.equal(await page.value(whole('#counter')), '2/5');
});

test('buttons steer the service', async (t) => {
  const { home, page, commands } = await paired(t);
  home.onCommand = ({ cmd }) => {
    if (cmd !== 'pause' && cmd !== 'resume') return;
    const isPaused = cmd === 'pause';
    home.write('state.json', { sessions: [session], volume: 80, paused: isPaused });
    home.write('now-playing.json', snapshot({ state: isPaused ? 'paused' : 'playing' }));
  };
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  await page.tap('#toggle');
  await page.waitFor(`${text('#status-label')} === "Paused"`);
  assert.equal(await page.value('document.querySelector("#toggle").ariaLabel'), 'Play');
  const elapsed = await page.value(text('#elapsed'));
  await new Promise((resolve) => setTimeout(resolve, 1200));
  assert.equal(await page.value(text('#elapsed')), elapsed, 'a pause stands still');
  await page.tap('#toggle');
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  for (const id of ['previous', 'next', 'restart', 'stop']) await page.tap(`#${id}`);
  await until(() => commands.length === 6);
  assert.deepEqual(
    commands.map(({ cmd }) => cmd),
    ['pause', 'resume', 'previous', 'next', 'restart', 'stop'],
  );
});

test('the history can be scrubbed, and left for what is live', async (t) => {
  const { home, page, commands } = await paired(t);
  home.onCommand = ({ index }) => {
    const { cursor } = snapshot();
    home.write('now-playing.json', snapshot({ cursor: index === 0 ? cursor : { ...history, messageIndex: index } }));
  };
  await page.waitFor('document.querySelector("#history").max === "11"');
  assert.equal(await page.value(text('#history-label')), 'Live');
  // Three steps back from the right end, as a keyboard or a screen reader makes them: none waits for what comes of another.
  await page.value('document.querySelector("#history").focus()');
  await Promise.all([1, 2, 3].map(() => page.press('ArrowLeft', 'ArrowLeft', 37)));
  await until(() => commands.at(-1)?.index === 3);
  assert.ok(commands.every(({ cmd }) => cmd === 'scrub'));
  await page.waitFor(`${text('#history-label')} === "3 messages back"`);
  home.write('now-playing.json', snapshot({ cursor: history, newLiveCount: 2 }));
  await page.waitFor(`${text('#new-count')} === "+2 new"`);
  assert.equal(await page.value('document.querySelector("#live").ariaLabel'), 'Back to live, 2 new');
  await page.tap('#live');
  await until(() => commands.at(-1).index === 0);
  await page.waitFor(`${text('#history-label')} === "Live"`);
  // A tap on the track, as a thumb does it.
  await page.value('document.activeElement.blur()');
  await page.tap('#history');
  await until(() => commands.at(-1).index !== 0);
  assert.ok(commands.at(-1).index >= 4 && commands.at(-1).index <= 7, `index ${commands.at(-1).index}`);
});

test('volume and mute', async (t) => {
  const { home, page, commands } = await paired(t);
  await page.waitFor('document.querySelector("#volume").value === "80"');
  await page.value('document.querySelector("#volume").focus()');
  await page.press('ArrowLeft', 'ArrowLeft', 37);
  await until(() => commands.length === 1);
  assert.deepEqual([commands[0].cmd, commands[0].value], ['volume', 79]);
  await page.tap('#mute');
  await until(() => home.read('state.json').muted === true);
  await page.waitFor('document.querySelector("#mute").ariaPressed === "true"');
  await page.tap('#mute');
  await until(() => home.read('state.json').muted === false);
});

test('the volume is shown as it is, not as a step that is near', async (t) => {
  const { home, page } = await paired(t, { state: { volume: 73 } });
  await page.waitFor(`${text('#volume-label')} === "73 %"`);
  const volume = 'document.querySelector("#volume")';
  assert.equal(await page.value(`${volume}.value`), '73');
  assert.equal(await page.value(`${volume}.getAttribute("aria-valuetext")`), '73 %');
  home.write('state.json', { sessions: [session], volume: 120, muted: true });
  await page.waitFor(`${volume}.getAttribute("aria-valuetext") === "120 %, muted"`);
});

/** Keeps the page's next request until the page is told to let it go or to fail it. */
function holdNextRequest(page) {
  return page.value(`(() => {
    const real = fetch;
    window.fetch = (...all) => new Promise((resolve, reject) => {
      window.fetch = real;
      window.held = { letGo: () => resolve(real(...all)), fail: () => reject(new TypeError('no network')) };
    });
  })()`);
}

test('what is tapped one after another comes in that order', async (t) => {
  const { page, commands } = await paired(t);
  await page.waitFor('document.querySelector("#toggle").ariaDisabled === "false"');
  // The first is held up on its way; the browser has lines enough for the others to overtake it.
  await holdNextRequest(page);
  for (const id of ['previous', 'next', 'restart', 'stop']) await page.tap(`#${id}`);
  await page.value('held.letGo()');
  await until(() => commands.length === 4);
  assert.deepEqual(commands.map(({ cmd }) => cmd), ['previous', 'next', 'restart', 'stop']);
});

test('what waits behind a command that nobody answered is not done late', async (t) => {
  const { page, commands } = await paired(t);
  await page.waitFor('document.querySelector("#toggle").ariaDisabled === "false"');
  await holdNextRequest(page);
  for (const id of ['previous', 'next']) await page.tap(`#${id}`);
  await page.value('held.fail()');
  await page.waitFor(`${text('#toast')} === "Your computer doesn’t answer."`);
  await page.tap('#stop');
  await until(() => commands.length > 0);
  assert.deepEqual(commands.map(({ cmd }) => cmd), ['stop']);
});

test('a box to talk back appears once the service can take it', async (t) => {
  const { home, page, commands } = await paired(t);
  await page.waitFor('document.querySelector("#toggle").ariaDisabled === "false"');
  assert.equal(await page.value('document.querySelector("#talk").checkVisibility()'), false);
  home.write('state.json', { sessions: [session], remoteCommands: ['inject'] });
  await page.waitFor('document.querySelector("#talk").checkVisibility()');
  await page.tap('#talk-text');
  await page.type('  Please run the tests again. ');
  await page.tap('#send');
  await until(() => commands.length === 1);
  assert.deepEqual(commands[0], { text: 'Please run the tests again.', submit: true, proto: 1, cmd: 'inject' });
  await page.waitFor('document.querySelector("#talk-text").value === ""');
  await page.value('(() => { window.real = fetch; window.fetch = async () => { throw new TypeError("no network"); }; })()');
  await page.tap('#talk-text');
  await page.type('Keep this.');
  await page.press('Enter', 'Enter', 13);
  await page.waitFor(text('#toast'));
  assert.equal(await page.value('document.querySelector("#talk-text").value'), 'Keep this.');
  await page.value('(() => { window.fetch = real; })()');
  await home.stopService();
  await page.waitFor('document.querySelector("#send").ariaDisabled === "true"');
  const sent = () => page.requests.filter(({ url }) => url.includes('/api/command')).length;
  const before = sent();
  await page.press('Enter', 'Enter', 13);
  // What follows it through the same window has been answered, so it would have been sent.
  await page.value('fetch("/").then((answer) => answer.text()).then(() => true)');
  assert.equal(sent(), before);
  assert.equal(await page.value('document.querySelector("#talk-text").value'), 'Keep this.');
});

test('without service, without daemon, and back', async (t) => {
  const { home, page } = await paired(t, { port: await quietPort() });
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  await home.stopService();
  await page.waitFor(`${text('#status-label')} === "Not running"`);
  assert.match(await page.value(text('#placeholder')), /isn’t running/);
  assert.equal(await page.value('document.querySelector("#toggle").ariaDisabled'), 'true');
  await keep(page, 'not-running');
  await assertSound(page, 'no service');
  await home.listen();
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  await home.bridge.close();
  await page.waitFor(`${text('#status-label')} === "Reconnecting…"`);
  await keep(page, 'reconnecting');
  const { startBridge } = await import('../lib/bridge/bridge.js');
  const { silentLog } = await import('../lib/log.js');
  home.bridge = await startBridge({ environment: home.environment, log: silentLog });
  await page.waitFor(`${text('#status-label')} === "Playing"`);
});

test('a code may be pasted as people write it', async (t) => {
  const { page } = await setUp(t);
  await page.waitFor('document.activeElement?.id === "code"');
  await page.type('123 456');
  assert.equal(await page.value('document.querySelector("#code").value'), '123456');
  await page.type('7');
  assert.equal(await page.value('document.querySelector("#code").value'), '123456');
});

test('a short interruption keeps the focus, and ignores what is pressed', async (t) => {
  const { home, page } = await paired(t);
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  const off = (id) => `document.querySelector("${id}").ariaDisabled === "true"`;
  const interrupted = async (id, act) => {
    await page.waitFor(`!(${off(id)})`);
    await page.value(`document.querySelector("${id}").focus()`);
    await home.stopService();
    await page.waitFor(off(id));
    assert.equal(await page.value('document.activeElement.id'), id.slice(1));
    await act();
    await home.listen();
    await page.waitFor(`!(${off(id)})`);
    assert.equal(await page.value('document.activeElement.id'), id.slice(1));
  };
  await interrupted('#next', () => page.tap('#next'));
  await interrupted('#volume', async () => {
    await page.press('ArrowLeft', 'ArrowLeft', 37);
    await page.tap('#volume');
    assert.equal(await page.value('document.querySelector("#volume").value'), '80');
  });
  assert.deepEqual(page.requests.filter(({ url }) => url.includes('/api/command')), []);
});

test('a page whose place another took can be resumed by keyboard', async (t) => {
  const { home, page } = await paired(t);
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  assert.equal(await page.value('document.querySelector("#resume").checkVisibility()'), false);
  const token = await page.value('localStorage.getItem("sonra.token")');
  const abort = new AbortController();
  t.after(() => abort.abort());
  const headers = { Authorization: `Bearer ${token}` };
  for (let i = 0; i < 4; i += 1) await fetch(`${home.origin}/api/now-playing`, { headers, signal: abort.signal });
  await page.waitFor('document.querySelector("#resume").checkVisibility()');
  assert.equal(await page.value(text('#status-label')), 'Open elsewhere');
  await keep(page, 'replaced');
  await assertSound(page, 'replaced');
  await page.screen({ width: 320, height: 568 });
  await assertSound(page, 'replaced on a small screen');
  const nodes = await page.accessibility();
  assert.ok(nodes.some(({ role, name }) => role === 'button' && name === 'Resume here'));
  for (let i = 0; i < 13 && (await page.value('document.activeElement.id')) !== 'resume'; i += 1) {
    await page.press('Tab', 'Tab', 9);
  }
  assert.equal(await page.value('document.activeElement.id'), 'resume');
  await page.press('Enter', 'Enter', 13);
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  assert.equal(await page.value('document.querySelector("#resume").checkVisibility()'), false);
  assert.equal(await page.value('document.activeElement.id'), 'toggle');
});

/** Stands between the page and the bridge, and can let what is open go dead without a word. */
async function startProxy(t, port) {
  const sockets = new Set();
  const proxy = net.createServer((near) => {
    const far = net.connect(port, '127.0.0.1');
    for (const [from, to] of [[near, far], [far, near]]) {
      sockets.add(from);
      from.on('error', () => {}).pipe(to);
    }
  });
  proxy.listen(0, '127.0.0.1');
  await once(proxy, 'listening');
  t.after(() => {
    for (const socket of sockets) socket.destroy();
    proxy.close();
  });
  const freeze = () => sockets.forEach((socket) => socket.unpipe().pause());
  return { origin: `http://127.0.0.1:${proxy.address().port}`, freeze };
}

test('a line that died unseen is opened again when the network is back', async (t) => {
  const { home, page } = await setUp(t);
  home.write('now-playing.json', snapshot());
  const { origin, freeze } = await startProxy(t, home.bridge.port);
  await page.open(origin);
  await pairIn(home, page);
  await page.waitFor('document.querySelector("#words span")');
  // Another line that rests: the browser would take it for the next request, and it dies as well.
  await page.value('fetch("/").then((answer) => answer.text()).then(() => true)');
  freeze();
  home.write('now-playing.json', snapshot({ snippet: 'After the nap.', rev: 2 }));
  await page.value('dispatchEvent(new Event("online"))');
  await page.value('(() => { const now = Date.now; Date.now = () => now() + 10_000; })()');
  await page.value('dispatchEvent(new Event("online"))');
  // Long before it would be told by the silence.
  await page.waitFor(`${whole('#words')} === "After the nap."`, 25_000);
});

test('the token outlives the page and dies with the pairing', async (t) => {
  const { home, page } = await paired(t);
  await page.open(home.origin);
  await page.waitFor('document.querySelector("#words span")');
  home.write('bridge-tokens.json', { tokens: [] });
  await page.waitFor('!document.querySelector("#pairing").hidden');
  assert.equal(await page.value('localStorage.length'), 0);
  assert.equal(await page.value(text('#pair-problem')), 'This device is no longer paired.');
  await assertNothingLeft(page);
});

test('a device can be forgotten on the phone', async (t) => {
  const { home, page } = await paired(t);
  await page.waitFor(`${text('#spoken')}.length > 0`);
  await page.tap('#device-button');
  await page.waitFor('document.querySelector("#device").open');
  await keep(page, 'device');
  await assertSound(page, 'the dialog');
  await page.tap('#forget');
  await page.waitFor('!document.querySelector("#pairing").hidden');
  assert.deepEqual(home.read('bridge-tokens.json').tokens, []);
  assert.equal(await page.value('localStorage.length'), 0);
  await assertNothingLeft(page);
});

test('a device that could not be forgotten says so, and may be forgotten here alone', { timeout: 60_000 }, async (t) => {
  const { home, page } = await paired(t);
  const lock = home.inShared('bridge-tokens.json.lock');
  fs.writeFileSync(lock, String(process.pid));
  await page.tap('#device-button');
  await page.waitFor('document.querySelector("#device").open');
  assert.equal(await page.value('document.querySelector("#forget-here").checkVisibility()'), false);
  await page.tap('#forget');
  await page.waitFor(`${text('#forget-problem')}.startsWith("This device isn’t forgotten yet.")`, 15_000);
  assert.equal(await page.value('localStorage.length'), 1);
  assert.equal(home.read('bridge-tokens.json').tokens.length, 1);
  assert.equal(await page.value('document.querySelector("#remote").hidden'), false);
  await keep(page, 'not-forgotten');
  await assertSound(page, 'a device that was not forgotten');
  await page.tap('#forget-here');
  await page.waitFor('!document.querySelector("#pairing").hidden');
  assert.match(await page.value(text('#pair-problem')), /still knows this device/);
  assert.equal(await page.value('localStorage.length'), 0);
  assert.equal(home.read('bridge-tokens.json').tokens.length, 1);
  await assertNothingLeft(page);
  fs.rmSync(lock);
});

test('a stolen page without a token gets nothing', async (t) => {
  const { home, page } = await paired(t);
  await page.waitFor('localStorage.length === 1');
  const stolen = await newPage(t);
  await stolen.screen(phone);
  await stolen.open(home.origin);
  await stolen.waitFor('!document.querySelector("#pairing").hidden');
  await stolen.value('localStorage.setItem("sonra.token", "x".repeat(43))');
  await stolen.open(home.origin);
  await stolen.waitFor(`${text('#pair-problem')} === "This device is no longer paired."`);
  assert.equal((await stolen.value('document.body.innerText')).includes('retry loop'), false);
  assert.equal(await stolen.value('fetch("/api/now-playing").then((answer) => answer.status)'), 401);
});

test('the page asks nobody else and runs nothing that is slipped in', async (t) => {
  const { home, page } = await paired(t);
  home.write('now-playing.json', snapshot({ snippet: '<img src=x onerror="window.hit=1"><b>bold</b> {{x}}', rev: 2 }));
  await page.waitFor(`${text('#words')}.includes("<img")`);
  assert.equal(await page.value('document.querySelector("#words img")'), null);
  assert.equal(await page.value('window.hit'), undefined);
  assert.deepEqual(page.complaints, []);
  for (const { url, headers } of page.requests) {
    assert.ok(url.startsWith(`${home.origin}/`) || url.startsWith('data:image/svg+xml') || url === 'about:blank', url);
    assert.doesNotMatch(url, /token|[A-Za-z0-9_-]{43}/);
    if (url.includes('/api/command')) assert.match(headers.Authorization, /^Bearer /);
  }
  const isBlocked = await page.value(`new Promise((resolve) => {
    addEventListener('securitypolicyviolation', (event) => resolve(event.effectiveDirective));
    const script = document.createElement('script');
    try { script.text = 'window.hit = 2'; document.body.append(script); } catch { resolve('trusted types'); }
  })`);
  assert.match(isBlocked, /script|trusted/);
  assert.equal(await page.value('window.hit'), undefined);
});

test('a screen reader finds its way', async (t) => {
  const { home, page } = await paired(t, { state: { remoteCommands: ['inject'] } });
  await page.waitFor(`${text('#spoken')}.length > 0 && !document.querySelector("#talk").hidden`);
  await page.waitFor(`${text('#status-label')} === "Playing"`);
  const nodes = await page.accessibility();
  const has = (role, name) => nodes.some((node) => node.role === role && node.name === name);
  for (const name of [
    'Stop',
    'Previous message',
    'Pause',
    'Next message',
    'Say this again',
    'Live',
    'Mute',
    'Send',
    'This device',
  ]) {
    assert.ok(has('button', name), name);
  }
  const sliders = nodes.filter(({ role }) => role === 'slider').map(({ name }) => name);
  assert.deepEqual(sliders, ['History', 'Volume']);
  const told = (id) => page.value(`document.querySelector('${id}').getAttribute('aria-valuetext')`);
  assert.deepEqual([await told('#history'), await told('#volume')], ['Live', '80 %']);
  assert.ok(has('textbox', 'Talk back to the agent'));
  assert.ok(has('heading', 'sonra · main'));
  assert.ok(
    has('region', 'Caption') &&
      has('region', 'Controls') &&
      has('group', 'Playback') &&
      nodes.some(({ role }) => role === 'main'),
  );
  assert.ok(nodes.some((node) => node.role === 'status'));
  assert.ok(has('progressbar', 'Played of this part'));
  // The words are there once, as a whole, and not a second time in pieces.
  assert.equal(nodes.filter((node) => node.role === 'StaticText' && node.name.includes('retry loop')).length, 1);
  assert.equal(nodes.filter((node) => node.role === 'StaticText' && node.name === 'retry').length, 0);
  assert.equal(nodes.filter(({ role, name }) => ['button', 'slider', 'textbox'].includes(role) && !name).length, 0);
  // Texts that follow each other quickly are told once: there is rest between any two that are.
  await page.value(
    `window.told = [];
    new MutationObserver(() => told.push({ text: ${text('#spoken')}, at: performance.now() }))
      .observe(document.querySelector('#spoken'), { childList: true })`,
  );
  for (let i = 1; i <= 5; i += 1) {
    home.write('now-playing.json', snapshot({ snippet: `Text ${i}.`, rev: i + 1 }));
    await page.waitFor(`${whole('#words')} === "Text ${i}."`);
  }
  await page.waitFor('told.at(-1)?.text === "Text 5."');
  const readings = await page.value('told');
  assert.ok(readings.every(({ at }, index) => index === 0 || at - readings[index - 1].at > 3900), JSON.stringify(readings));
});

test('the keyboard goes through the controls in their order', async (t) => {
  const { page } = await paired(t);
  await page.waitFor('document.querySelector("#toggle").ariaDisabled === "false"');
  await page.value('document.querySelector("#device-button").focus()');
  const order = [];
  for (let i = 0; i < 11; i += 1) {
    order.push(await page.value('document.activeElement.id'));
    await page.press('Tab', 'Tab', 9);
  }
  assert.deepEqual(order, [
    'device-button',
    'caption',
    'stop',
    'previous',
    'toggle',
    'next',
    'restart',
    'history',
    'live',
    'volume',
    'mute',
  ]);
});
