// How long a refusal takes tells nothing of a code or a token: what is compared are digests, whole, and nothing else
// judges. Watched at Node's own functions, which stand in for the clock: times themselves vary more than a compare.

import assert from 'node:assert/strict';
import crypto from 'node:crypto';
import { syncBuiltinESMExports } from 'node:module';
import test from 'node:test';

import { mintCode } from '../lib/bridge/pairCode.js';
import { Pairing } from '../lib/bridge/pairing.js';
import { TokenStore } from '../lib/bridge/tokens.js';
import { silentLog } from '../lib/log.js';
import { temporaryHome } from './home.js';

/** Puts `stand` in the place of a function of Node's until the test ends, for those who imported it as well. */
function replace(t, name, stand) {
  const original = crypto[name];
  crypto[name] = stand(original);
  syncBuiltinESMExports();
  t.after(() => {
    crypto[name] = original;
    syncBuiltinESMExports();
  });
}

function setUp(t) {
  const { environment } = temporaryHome(t);
  const clock = { time: 1_700_000_000_000, now: () => clock.time };
  const tokens = new TokenStore({ environment, log: silentLog, clock, onRemoved: () => {} });
  const pairing = new Pairing({ environment, log: silentLog, clock, tokens });
  const mint = () => mintCode({ environment, now: clock.time, random: () => 123_456 });
  const attempt = async (code) => {
    clock.time += 1000;
    return (await pairing.attempt(code, 'Phone')).outcome;
  };
  return { tokens, mint, attempt };
}

test('every code is compared in constant time, by its digest, wherever it differs', async (t) => {
  const compared = [];
  replace(t, 'timingSafeEqual', (original) => (a, b) => {
    compared.push([a, b].map((each) => Buffer.from(each).toString('hex')));
    return original(a, b);
  });
  const { mint, attempt } = setUp(t);
  mint();
  const digest = (text) => crypto.createHash('sha256').update(text).digest('hex');
  const guesses = ['023456', '123450', '999999', '123456'];
  const outcomes = [];
  for (const guess of guesses) outcomes.push(await attempt(guess));
  assert.deepEqual(outcomes, ['refused', 'refused', 'refused', 'paired']);
  assert.deepEqual(compared, guesses.map((guess) => [digest('123456'), digest(guess)]));
});

test('nothing but that compare judges a code', async (t) => {
  let verdict = true;
  replace(t, 'timingSafeEqual', () => () => verdict);
  const { mint, attempt } = setUp(t);
  for (const guess of ['023456', '123450', '999999']) {
    mint();
    assert.equal(await attempt(guess), 'paired', guess);
  }
  verdict = false;
  mint();
  assert.equal(await attempt('123456'), 'refused');
});

test('a token is known by its digest alone', async (t) => {
  const { tokens } = setUp(t);
  const { token } = await tokens.add('Phone');
  const device = tokens.deviceOf(token);
  assert.ok(device && !device.includes(token));
  const other = 'A'.repeat(43);
  assert.equal(tokens.deviceOf(other), undefined);
  const taken = [];
  replace(t, 'createHash', (original) => (algorithm) => {
    const hash = { update: (text) => { taken.push([algorithm, text]); return hash; }, digest: (form) =>
      original('sha256').update(token).digest(form) };
    return hash;
  });
  // As if the digest of the other were the same.
  assert.equal(tokens.deviceOf(other), device);
  assert.deepEqual(taken, [['sha256', other]]);
});
