import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { mintCode } from '../lib/bridge/pairCode.js';
import { readState, tts } from './commandLine.js';
import { temporaryHome } from './home.js';

const alive = { daemonStatus: async () => ({ alive: true, bridgePort: 17842 }) };

/** Mints the code 004711, which lives for `lifetime` from now, and tells when it has. */
function minting(lifetime = 300_000, then = () => {}) {
  return async (environment) => {
    const minted = mintCode({ environment, now: Date.now() - 300_000 + lifetime, random: () => 4711 });
    then();
    return minted;
  };
}

const writeTokens = (home, tokens) => fs.writeFileSync(home.inShared('bridge-tokens.json'), JSON.stringify({ tokens }));
const token = (name, createdAt) => ({ label: name, token: `secret-${name}`, createdAt });

test('without a terminal the code and the address are printed, and the code stays valid', async (t) => {
  const home = temporaryHome(t);
  const { exit, stdout, stderr } = await tts(home, ['pair'], { neighbours: { ...alive, mintCode: minting() } });
  assert.equal(exit, 0);
  const lines = stdout.split('\n');
  assert.deepEqual(lines.slice(0, 2),
    ['Open one of these on the phone: http://127.0.0.1:17842/', 'and enter the code: 004711']);
  assert.match(lines[2], /^It is valid until .*\d\d.*\.$/);
  assert.match(stderr, /Only this computer reaches the bridge/);
  assert.match(stderr, /service isn't running/);
  assert.equal(JSON.parse(fs.readFileSync(home.inShared('active-pair-code.json'), 'utf8')).code, '004711');
  assert.deepEqual(readState(home), {});
});

test('--lan and --no-lan are kept', async (t) => {
  const home = temporaryHome(t);
  const neighbours = { ...alive, mintCode: minting() };
  const first = JSON.parse((await tts(home, ['pair', '--lan', '--json'], { neighbours })).stdout);
  assert.deepEqual([first.lan, first.code, readState(home).bridgeLan], [true, '004711', true]);
  for (const address of first.addresses) assert.match(address, /^http:\/\/(?!127\.).*:17842\/$/);
  assert.equal(JSON.parse((await tts(home, ['pair', '--json'], { neighbours })).stdout).lan, true);
  assert.equal(JSON.parse((await tts(home, ['pair', '--no-lan', '--json'], { neighbours })).stdout).lan, false);
  assert.equal(readState(home).bridgeLan, false);
  assert.equal((await tts(home, ['pair', '--no-lan', '--lan'], { neighbours })).exit, 2);
  assert.equal((await tts(home, ['pair', '--wait', '--no-wait'], { neighbours })).exit, 2);
});

test('the daemon is started where it does not run', async (t) => {
  const home = temporaryHome(t);
  let started = false;
  let asked = 0;
  const neighbours = {
    mintCode: minting(),
    // The bridge begins to listen a moment after the daemon answers.
    daemonStatus: async () => ({ alive: started, bridgePort: started && (asked += 1) > 2 ? 7842 : undefined }),
    startDaemon: async () => { started = true; },
  };
  const { exit, stdout, stderr } = await tts(home, ['pair'], { neighbours });
  assert.equal(exit, 0);
  assert.match(stderr, /^Started the daemon/);
  assert.match(stdout, /http:\/\/127\.0\.0\.1:7842\//);
});

test('the code is shown once the local network is let in, and not if it never is', async (t) => {
  let asked = 0;
  const daemonStatus = async () => ({ alive: true, bridgePort: 7842, bridgeLan: (asked += 1) > 3 });
  const neighbours = { daemonStatus, mintCode: minting() };
  assert.equal((await tts(temporaryHome(t), ['pair', '--lan'], { neighbours })).exit, 0);
  assert.ok(asked > 3, `asked ${asked} times`);
  const deaf = { daemonStatus: async () => ({ alive: true, bridgePort: 7842, bridgeLan: false }), mintCode: minting() };
  const { exit, stdout, stderr } = await tts(temporaryHome(t), ['pair', '--lan'], { neighbours: deaf });
  assert.deepEqual([exit, stdout], [1, '']);
  assert.match(stderr, /still doesn't let the local network in/);
});

test('a daemon that hangs is told to, and soon; one that is silent once is asked again', async (t) => {
  let asked = 0;
  const daemonStatus = async () => { asked += 1; return { alive: true, responding: false }; };
  const { exit, stdout, stderr } = await tts(temporaryHome(t), ['pair'], { neighbours: { daemonStatus } });
  assert.deepEqual([exit, stdout, asked], [1, '', 2]);
  assert.equal(stderr, "tts: The daemon doesn't answer, so no device could pair.\n"
    + '"tts quit" ends it with the service, "tts start" starts both.\n');
  const busy = async () => ({ alive: true, responding: (asked += 1) > 3, bridgePort: 7842 });
  assert.equal((await tts(temporaryHome(t), ['pair'], { neighbours: { daemonStatus: busy, mintCode: minting() } })).exit, 0);
});

test('a bridge that failed is told, and no code is minted', async (t) => {
  const neighbours = { daemonStatus: async () => ({ alive: true, parts: { bridge: 'failed' } }) };
  const begin = performance.now();
  const { exit, stderr } = await tts(temporaryHome(t), ['pair'], { neighbours });
  assert.ok(performance.now() - begin < 4000, 'it was waited for');
  assert.equal(exit, 1);
  assert.match(stderr, /^tts: The daemon's bridge doesn't run/);
});

test('on a terminal a device that pairs is told by its name', async (t) => {
  const home = temporaryHome(t);
  writeTokens(home, [token('old', 1)]);
  const tokens = [token('old', 1), token('Pixel\u001b[31m', 3), { label: 'x' }];
  const mint = minting(300_000, () => setTimeout(() => writeTokens(home, tokens), 50));
  const { exit, stdout } = await tts(home, ['pair'], { isTerminal: true, neighbours: { ...alive, mintCode: mint } });
  assert.equal(exit, 0);
  assert.match(stdout, /\nPaired: Pixel \[31m\.\n$/);
});

test('waiting in JSON gives one object at the end', async (t) => {
  const home = temporaryHome(t);
  const mint = minting(300_000, () => setTimeout(() => writeTokens(home, [token('Pixel', 3)]), 50));
  const { stdout } = await tts(home, ['pair', '--wait', '--json'], { neighbours: { ...alive, mintCode: mint } });
  const { paired, device, code } = JSON.parse(stdout);
  assert.deepEqual([paired, device, code], [true, 'Pixel', '004711']);
});

const unreadable = {
  torn: (file) => fs.writeFileSync(file, '{"tokens":[{"label"'),
  'a folder': (file) => fs.mkdirSync(file),
};
for (const [what, spoil] of Object.entries(unreadable)) {
  test(`where the paired devices can't be read (${what}) that is told, and old ones that come back aren't new`, async (t) => {
    const home = temporaryHome(t);
    const file = home.inShared('bridge-tokens.json');
    spoil(file);
    const old = token('old', Date.now() - 1000);
    let shown = 0;
    const mint = minting(300_000, () => {
      setTimeout(() => { fs.rmSync(file, { recursive: true }); writeTokens(home, [old]); }, 50);
      setTimeout(() => { shown += 1; writeTokens(home, [old, token('Pixel', Date.now())]); }, 900);
    });
    const { exit, stdout, stderr } = await tts(home, ['pair', '--wait'], { neighbours: { ...alive, mintCode: mint } });
    assert.deepEqual([exit, shown], [0, 1]);
    assert.match(stdout, /\nPaired: Pixel\.\n$/);
    assert.match(stderr, /bridge-tokens\.json can't be read, so it isn't known which devices are paired/);
  });
}

test('a code that is gone while the paired devices can\'t be read may have been used', async (t) => {
  const home = temporaryHome(t);
  writeTokens(home, [token('old', 1)]);
  const mint = minting(300_000, () => setTimeout(() => {
    unreadable.torn(home.inShared('bridge-tokens.json'));
    removeCode(home);
  }, 30));
  const { exit, stdout, stderr } = await tts(home, ['pair', '--wait', '--json'], { neighbours: { ...alive, mintCode: mint } });
  const { ok, error, paired } = JSON.parse(stdout);
  assert.deepEqual([exit, ok, error, paired], [1, false, 'unknown', null]);
  assert.match(stderr, /whether a device has paired by it isn't known/);
  assert.equal(fs.readFileSync(home.inShared('bridge-tokens.json'), 'utf8'), '{"tokens":[{"label"');
});

const removeCode = (home) => fs.rmSync(home.inShared('active-pair-code.json'));

test('a code is not called void while the device is being written down', async (t) => {
  const home = temporaryHome(t);
  const lock = home.inShared('bridge-tokens.json.lock');
  const mint = minting(300_000, () => {
    fs.writeFileSync(lock, String(process.pid));
    setTimeout(() => removeCode(home), 30);
    setTimeout(() => { writeTokens(home, [token('Pixel', 3)]); fs.rmSync(lock); }, 2000);
  });
  const { exit, stdout } = await tts(home, ['pair', '--wait'], { neighbours: { ...alive, mintCode: mint } });
  assert.equal(exit, 0);
  assert.match(stdout, /Paired: Pixel/);
});

const endings = [
  ['that expires', { lifetime: 100 }, 1, 'expired', /has expired/],
  ['that the bridge voids', { lifetime: 8000, then: removeCode }, 1, 'void', /void/],
  ['that is given up', { abort: 143 }, 143, 'interrupted', /Given up/],
];
for (const [what, { lifetime, then, abort }, code, kind, said] of endings) {
  test(`a code ${what} ends with ${code} and is no longer there`, async (t) => {
    const home = temporaryHome(t);
    const controller = new AbortController();
    const afterwards = () => setTimeout(() => { then?.(home); if (abort) controller.abort(abort); }, 30);
    const { exit, stdout, stderr } = await tts(home, ['pair', '--wait', '--json'], {
      signal: controller.signal, neighbours: { ...alive, mintCode: minting(lifetime, afterwards) },
    });
    assert.equal(exit, code);
    assert.match(stderr, said);
    const { ok, error, paired } = JSON.parse(stdout);
    assert.deepEqual([ok, error, paired], [false, kind, false]);
    assert.equal(fs.existsSync(home.inShared('active-pair-code.json')), false);
  });
}
