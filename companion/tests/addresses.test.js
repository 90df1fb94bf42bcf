// Which addresses stand for something: the same ones as for the service.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { namesSession } from '../lib/cli/addresses.js';
import { tts } from './commandLine.js';
import { temporaryHome } from './home.js';

const program = process.env.SONRA_PROGRAM ?? fileURLToPath(new URL('../../build/bin/sonra', import.meta.url));

/** The rows that the service's own reading of addresses is held against. */
function serviceRows() {
  const text = fs.readFileSync(new URL('../../tests/search/SpotlightIndexerTest.cpp', import.meta.url), 'utf8');
  const [table] = /const Case cases\[\] = \{[^;]*\};/.exec(text.slice(text.indexOf('NamesASessionAndMaybeAMessage')));
  return [...table.matchAll(/\{"([^"]*)", (Address|std::nullopt)/g)]
    .map(([, address, means]) => ({ address, isOne: means === 'Address' }));
}

test('an address stands for something where it does for the service', () => {
  const rows = serviceRows();
  assert.ok(rows.filter(({ isOne }) => isOne).length > 5 && rows.filter(({ isOne }) => !isOne).length > 5);
  for (const { address, isOne } of rows) assert.equal(namesSession(address), isOne, address);
});

test('no part of an address is taken for another one', () => {
  for (const address of ['tts://session#/abc', 'tts://session?/abc', 'tts://session@other/abc', 'tts://Session/abc',
    ' tts://session/abc', 'tts://session///', 'tts://session/#abc']) {
    assert.equal(namesSession(address), false, address);
  }
  for (const address of ['tts://a@b@session/abc', 'tts://session:x@session/abc', 'tts://session/\n']) {
    assert.equal(namesSession(address), true, address);
  }
});

test('one that stands for nothing is refused as the service\'s program refuses it', async (t) => {
  const home = temporaryHome(t);
  for (const address of ['tts://nonsense', 'tts://session', 'tts://', 'tts://other/abc']) {
    const { status, stderr } = spawnSync(program, [address], { env: home.environment, encoding: 'utf8', timeout: 30_000 });
    const own = await tts(home, ['open', address]);
    assert.deepEqual([own.exit, own.stderr], [status, stderr.replace('sonra: the', 'tts: The')], address);
    assert.equal(status, 2);
  }
});
