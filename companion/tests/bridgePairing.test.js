import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { mintCode } from '../lib/bridge/pairCode.js';
import { Pairing } from '../lib/bridge/pairing.js';
import { cleanLabel, TokenStore } from '../lib/bridge/tokens.js';
import { Log, silentLog } from '../lib/log.js';
import { temporaryHome } from './home.js';

function setUp(t) {
  const home = temporaryHome(t);
  const clock = { time: 1_700_000_000_000, now: () => clock.time };
  const removed = [];
  const tokens = new TokenStore({
    environment: home.environment,
    log: silentLog,
    clock,
    onRemoved: (device) => removed.push(device),
  });
  const pairing = new Pairing({ environment: home.environment, log: silentLog, clock, tokens });
  const attempt = async (code, label = 'Phone') => (await pairing.attempt(code, label)).outcome;
  const later = (milliseconds) => {
    clock.time += milliseconds;
  };
  const mint = (number) => mintCode({ environment: home.environment, now: clock.time, random: () => number });
  const rows = () => JSON.parse(fs.readFileSync(home.inShared('bridge-tokens.json'), 'utf8')).tokens;
  return { ...home, clock, tokens, pairing, attempt, later, mint, rows, removed };
}

test('a code is six digits for five minutes, in a file of its owner', (t) => {
  const { mint, clock, inShared, shared } = setUp(t);
  fs.rmSync(shared, { recursive: true });
  assert.deepEqual(mint(42), { code: '000042', expiresAt: clock.time + 300_000 });
  const file = inShared('active-pair-code.json');
  assert.deepEqual(JSON.parse(fs.readFileSync(file, 'utf8')), { code: '000042', expiresAt: clock.time + 300_000 });
  assert.equal(fs.statSync(file).mode & 0o777, 0o600);
  assert.equal(fs.statSync(shared).mode & 0o777, 0o700);
});

test('codes are random', (t) => {
  const { environment } = setUp(t);
  const codes = new Set(Array.from({ length: 50 }, () => mintCode({ environment }).code));
  assert.ok(codes.size > 45);
});

test('the right code pairs a device once', async (t) => {
  const { mint, attempt, later, rows, clock, inShared } = setUp(t);
  mint(123456);
  assert.equal(await attempt('123456', 'My phone'), 'paired');
  const [row] = rows();
  assert.match(row.token, /^[A-Za-z0-9_-]{43}$/);
  assert.deepEqual(
    { ...row, token: '' },
    { label: 'My phone', createdAt: clock.time, token: '', lastSeenAt: clock.time },
  );
  assert.equal(fs.statSync(inShared('bridge-tokens.json')).mode & 0o777, 0o600);
  assert.equal(fs.existsSync(inShared('active-pair-code.json')), false);
  later(1000);
  assert.equal(await attempt('123456'), 'refused');
});

test('a spent code stays spent when its file comes back', async (t) => {
  const { mint, attempt, later, inShared } = setUp(t);
  mint(123456);
  const content = fs.readFileSync(inShared('active-pair-code.json'));
  assert.equal(await attempt('123456'), 'paired');
  fs.writeFileSync(inShared('active-pair-code.json'), content);
  later(1000);
  assert.equal(await attempt('123456'), 'refused');
});

test('two devices with the same code at once: one gets in', async (t) => {
  const { mint, pairing, clock } = setUp(t);
  mint(123456);
  const first = pairing.attempt('123456', 'one');
  clock.time += 1000;
  const second = pairing.attempt('123456', 'two');
  assert.deepEqual([(await first).outcome, (await second).outcome], ['paired', 'refused']);
});

test('one try a second, for all together', async (t) => {
  const { mint, attempt, later } = setUp(t);
  mint(123456);
  assert.equal(await attempt('000000'), 'refused');
  assert.equal(await attempt('123456'), 'tooSoon');
  later(999);
  assert.equal(await attempt('123456'), 'tooSoon');
  later(1);
  assert.equal(await attempt('123456'), 'paired');
});

test('a clock that is set back holds nobody up for longer than a second', async (t) => {
  const { mint, attempt, later } = setUp(t);
  assert.equal(await attempt('000000'), 'refused');
  later(-3_600_000);
  mint(123456);
  assert.equal(await attempt('123456'), 'tooSoon');
  later(1000);
  assert.equal(await attempt('123456'), 'paired');
});

test('five wrong tries void the code', async (t) => {
  const { mint, attempt, later, inShared } = setUp(t);
  mint(123456);
  const content = fs.readFileSync(inShared('active-pair-code.json'));
  for (let i = 0; i < 5; i += 1) {
    assert.equal(await attempt(`00000${i}`), 'refused');
    later(1000);
  }
  assert.equal(fs.existsSync(inShared('active-pair-code.json')), false);
  fs.writeFileSync(inShared('active-pair-code.json'), content);
  assert.equal(await attempt('123456'), 'refused', 'the file came back');
  later(1000);
  mint(654321);
  assert.equal(await attempt('654321'), 'paired', 'a new code begins anew');
});

test('four wrong tries leave the fifth for the right one', async (t) => {
  const { mint, attempt, later } = setUp(t);
  mint(123456);
  for (let i = 0; i < 4; i += 1) {
    assert.equal(await attempt(`00000${i}`), 'refused');
    later(1000);
  }
  assert.equal(await attempt('123456'), 'paired');
});

test('a daemon that is started anew grants no more tries', async (t) => {
  const { mint, attempt, later, clock, environment, tokens, inShared } = setUp(t);
  mint(123456);
  for (let i = 0; i < 4; i += 1) {
    assert.equal(await attempt(`00000${i}`), 'refused');
    later(1000);
  }
  assert.equal(fs.statSync(inShared('active-pair-code.json')).mode & 0o777, 0o600);
  const again = new Pairing({ environment, log: silentLog, clock, tokens });
  assert.equal((await again.attempt('000005', 'x')).outcome, 'refused');
  assert.equal(fs.existsSync(inShared('active-pair-code.json')), false);
});

test('what is no code costs nobody his try, and is told once a minute', async (t) => {
  const { mint, clock, environment, tokens } = setUp(t);
  const lines = [];
  const log = new Log({ append: (line) => lines.push(JSON.parse(line)) });
  const pairing = new Pairing({ environment, log, clock, tokens });
  mint(123456);
  for (let i = 0; i < 20; i += 1) assert.equal((await pairing.attempt('12345', 'x')).outcome, 'malformed');
  assert.deepEqual(lines.map(({ msg, tries }) => [msg, tries]), [['bridge refused to pair', 1]]);
  clock.time += 60_000;
  await pairing.attempt('12345', 'x');
  assert.equal(lines[1].tries, 20);
  assert.equal((await pairing.attempt('123456', 'x')).outcome, 'paired');
  assert.doesNotMatch(JSON.stringify(lines), /12345/);
});

test('a code that would live longer than any opens nothing', async (t) => {
  const { mint, attempt, later } = setUp(t);
  mint(123456);
  later(-5001);
  assert.equal(await attempt('123456'), 'refused');
  later(1000);
  assert.equal(await attempt('123456'), 'paired');
});

test('a file of devices that cannot be looked at holds none', async (t) => {
  const { tokens, inShared } = setUp(t);
  const { token } = await tokens.add('Phone');
  const file = inShared('bridge-tokens.json');
  const content = fs.readFileSync(file);
  assert.ok(tokens.deviceOf(token));
  fs.rmSync(file);
  fs.symlinkSync(file, file);
  assert.equal(tokens.deviceOf(token), undefined);
  fs.rmSync(file);
  fs.writeFileSync(file, content);
  assert.ok(tokens.deviceOf(token));
});

test('a new code has five tries of its own', async (t) => {
  const { mint, attempt, later } = setUp(t);
  for (const number of [111111, 222222]) {
    mint(number);
    for (let i = 0; i < 4; i += 1) {
      assert.equal(await attempt(`00000${i}`), 'refused');
      later(1000);
    }
  }
  assert.equal(await attempt('222222'), 'paired');
});

test('a code is refused from its end on', async (t) => {
  const { mint, attempt, later } = setUp(t);
  mint(123456);
  later(300_000);
  assert.equal(await attempt('123456'), 'refused');
  mint(123456);
  later(299_999);
  assert.equal(await attempt('123456'), 'paired');
});

for (const code of [
  '12345',
  '1234567',
  '12345a',
  '１２３４５６',
  '',
  ' 123456',
  '123456\n',
  123456,
  null,
  ['123456'],
  {},
]) {
  test(`${JSON.stringify(code)} is no code`, async (t) => {
    const { mint, attempt } = setUp(t);
    mint(123456);
    assert.equal(await attempt(code), 'malformed');
  });
}

for (const content of [
  '',
  '{}',
  '[]',
  'null',
  '{"code":"123456"}',
  '{"code":123456,"expiresAt":9e15}',
  '{"code":"123456","expiresAt":"9999999999999"}',
  '{"code":"","expiresAt":9000000000000}',
]) {
  test(`a code file of ${content || 'nothing'} opens to nobody`, async (t) => {
    const { attempt, inShared } = setUp(t);
    fs.writeFileSync(inShared('active-pair-code.json'), content);
    assert.equal(await attempt('123456'), 'refused');
  });
}

test('a device that cannot be written down is not paired, and its code is spent', async (t) => {
  const { mint, pairing, attempt, later, inShared } = setUp(t);
  fs.mkdirSync(inShared('bridge-tokens.json'));
  mint(123456);
  await assert.rejects(pairing.attempt('123456', 'Phone'));
  fs.rmdirSync(inShared('bridge-tokens.json'));
  later(1000);
  assert.equal(await attempt('123456'), 'refused');
});

test('other rows and unknown keys are kept', async (t) => {
  const { mint, attempt, inShared, rows } = setUp(t);
  fs.writeFileSync(
    inShared('bridge-tokens.json'),
    '{"extra":1.0,"tokens":[{"label":"old","hue":7,"createdAt":1,"token":"x"}]}',
  );
  mint(123456);
  assert.equal(await attempt('123456'), 'paired');
  assert.deepEqual(rows()[0], { label: 'old', hue: 7, createdAt: 1, token: 'x' });
  assert.equal(rows().length, 2);
  assert.match(fs.readFileSync(inShared('bridge-tokens.json'), 'utf8'), /"extra": 1\.0/);
});

test('a token opens until its row is removed', async (t) => {
  const { tokens, inShared, rows, removed } = setUp(t);
  const { token } = await tokens.add('Phone');
  const device = tokens.deviceOf(token);
  assert.ok(device);
  assert.doesNotMatch(device, new RegExp(token.slice(0, 8)));
  assert.equal(tokens.deviceOf(`${token.slice(0, -1)}${token.endsWith('A') ? 'B' : 'A'}`), undefined);
  fs.writeFileSync(inShared('bridge-tokens.json'), JSON.stringify({ tokens: rows().slice(1) }));
  assert.equal(tokens.deviceOf(token), undefined);
  assert.deepEqual(removed, [device]);
});

test('rows without a proper token open to nobody', (t) => {
  const { tokens, inShared } = setUp(t);
  const rows = ['', 'x', 'undefined', null, 5].map((token) => ({ label: 'odd', createdAt: 1, token }));
  fs.writeFileSync(inShared('bridge-tokens.json'), JSON.stringify({ tokens: [...rows, null, 7, 'x'] }));
  for (const token of ['', 'x', 'undefined', 'null', undefined, '5']) assert.equal(tokens.deviceOf(token), undefined);
});

test('when a device was seen is written once a minute', async (t) => {
  const { tokens, rows, clock, later } = setUp(t);
  const { token } = await tokens.add('Phone');
  const began = clock.time;
  later(59_999);
  await tokens.touch(tokens.deviceOf(token));
  assert.equal(rows()[0].lastSeenAt, began);
  later(1);
  await tokens.touch(tokens.deviceOf(token));
  assert.equal(rows()[0].lastSeenAt, began + 60_000);
});

test('seeing a device brings no removed row back', async (t) => {
  const { tokens, rows, inShared, later } = setUp(t);
  const { token } = await tokens.add('Phone');
  const device = tokens.deviceOf(token);
  fs.writeFileSync(inShared('bridge-tokens.json'), '{"tokens":[]}');
  later(60_000);
  await tokens.touch(device);
  assert.deepEqual(rows(), []);
});

for (const [label, clean] of [
  ['My phone', 'My phone'],
  ['  a \n\t b ', 'a b'],
  ['a\u0000\u001b[31mb', 'a[31mb'],
  ['\u202Eenohp', 'enohp'],
  ['', 'Phone'],
  [undefined, 'Phone'],
  [7, 'Phone'],
  ['x'.repeat(200), 'x'.repeat(64)],
  ['😀'.repeat(70), '😀'.repeat(64)],
  ['\u200b\u2028', 'Phone'],
]) {
  test(`the label ${JSON.stringify(label)?.slice(0, 30)} becomes ${clean.slice(0, 20)}`, () => {
    assert.equal(cleanLabel(label), clean);
  });
}
