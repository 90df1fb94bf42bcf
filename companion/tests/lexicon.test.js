import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { addEntry, loadEntries, removeEntry, validateEntry } from '../lib/lexicon.js';
import { tts } from './commandLine.js';
import { temporaryHome } from './home.js';

const profile = (home) => fs.readFileSync(home.inShared('profile.json'), 'utf8');
const write = (home, value) => fs.writeFileSync(home.inShared('profile.json'),
  typeof value === 'string' ? value : JSON.stringify(value));

const judged = [
  ['', 'x', /1\.\.64/], ['a'.repeat(64), 'x', undefined], ['a'.repeat(65), 'x', /too long \(max 64/],
  ['👍'.repeat(33), 'x', /too long/], [' \n', 'x', /whitespace-only/], ['a', '', undefined],
  ['a', 'x'.repeat(256), undefined], ['a', 'x'.repeat(257), /too long \(max 256/],
];
for (const [match, say, reason] of judged) {
  test(`"${match.slice(0, 5)}" of ${match.length} for ${say.length}: ${reason ?? 'valid'}`, () => {
    if (reason) assert.match(validateEntry(match, say), reason);
    else assert.equal(validateEntry(match, say), undefined);
  });
}

test('the profile has the form in which the service writes it', async (t) => {
  const home = temporaryHome(t);
  await addEntry('nginx', 'engine x', home.environment);
  assert.equal(profile(home),
    '{\n  "lexicon": [\n    {\n      "match": "nginx",\n      "say": "engine x"\n    }\n  ],\n  "version": 1\n}\n');
  assert.equal(fs.statSync(home.inShared('profile.json')).mode & 0o777, 0o600);
  assert.deepEqual(fs.readdirSync(home.shared), ['profile.json']);
});

test('a word that is there in another case is replaced in its place', async (t) => {
  const home = temporaryHome(t);
  write(home, { version: 1, mine: 1.5, lexicon: [{ match: 'NGINX', say: 'a' }, { match: 'k8s', say: 'b' }] });
  assert.equal(await addEntry('nginx', 'c', home.environment), 'replaced');
  assert.deepEqual(JSON.parse(profile(home)),
    { version: 1, mine: 1.5, lexicon: [{ match: 'nginx', say: 'c' }, { match: 'k8s', say: 'b' }] });
});

test('a full lexicon takes no other word, but another pronunciation of one', async (t) => {
  const home = temporaryHome(t);
  write(home, { lexicon: Array.from({ length: 600 }, (_, i) => ({ match: `w${i}`, say: 'x' })) });
  assert.equal(loadEntries(home.environment).length, 500);
  const before = profile(home);
  assert.equal(await addEntry('new', 'x', home.environment), 'full');
  assert.equal(profile(home), before);
  assert.equal(await addEntry('w3', 'y', home.environment), 'replaced');
});

test('what is no entry is passed over, and a bad profile is empty', (t) => {
  const home = temporaryHome(t);
  write(home, { lexicon: [{ match: 'a' }, 3, null, { match: ' ', say: 'x' }, { match: 'a', say: 1 }, { match: 'b', say: '' }] });
  assert.deepEqual(loadEntries(home.environment), [{ match: 'b', say: '' }]);
  for (const text of ['{ this is not json', '{"version":1,"lexicon":42}', '[]', '']) {
    write(home, text);
    assert.deepEqual(loadEntries(home.environment), [], text);
  }
});

test('a profile that nobody can read is set aside before it is begun anew', async (t) => {
  const home = temporaryHome(t);
  write(home, '{"lexicon": [');
  await addEntry('a', 'b', home.environment);
  assert.deepEqual(loadEntries(home.environment), [{ match: 'a', say: 'b' }]);
  assert.equal(fs.readFileSync(home.inShared('profile.json.unreadable'), 'utf8'), '{"lexicon": [');
});

test('removing finds the word in any case, and changes nothing where it isn\'t', async (t) => {
  const home = temporaryHome(t);
  write(home, '{"lexicon":[{"match":"Nginx","say":"x"},{"match":"nginX","say":"y"},{"match":"z","say":"z"}]}');
  assert.equal(await removeEntry('other', home.environment), false);
  assert.equal(profile(home).includes('\n'), false);
  assert.equal(await removeEntry('NGINX', home.environment), true);
  assert.deepEqual(loadEntries(home.environment), [{ match: 'z', say: 'z' }]);
});

test('writers wait for each other', async (t) => {
  const home = temporaryHome(t);
  await Promise.all(Array.from({ length: 12 }, (_, i) => addEntry(`w${i}`, 'x', home.environment)));
  assert.equal(loadEntries(home.environment).length, 12);
});

const calls = [
  [['list'], 0, 'nginx  engine x\num     (left out)\n', ''],
  [['list', '--json'], 0, '{"ok":true,"entries":[{"match":"nginx","say":"engine x"},{"match":"um","say":""}]}\n', ''],
  [['add', 'k8s', 'kubernetes'], 0, '"k8s" is spoken "kubernetes".\n', ''],
  [['add', 'k8s', ''], 0, '"k8s" is left out.\n', ''],
  [['add', '--json', 'NGINX', 'x'], 0, '{"ok":true,"entry":{"match":"NGINX","say":"x"},"replaced":true}\n', ''],
  [['add', '--', '--force', 'force'], 0, '"--force" is spoken "force".\n', ''],
  [['add', ' ', 'x'], 2, '', "tts: That can't be an entry: match must not be whitespace-only.\n"],
  [['add', 'x'], 2, '', 'tts: It is "tts lexicon add WORD SAY".\n'],
  [['remove', 'nginx'], 0, '"nginx" is spoken as it is written.\n', ''],
  [['remove', 'none'], 3, '', 'tts: There is no entry for "none".\n'],
  [['clear'], 2, '', 'tts: "clear" is none of list, add and remove.\n'],
  [[], 2, '', 'tts: "tts lexicon" needs list | add WORD SAY | remove WORD.\n'],
];
for (const [words, code, out, error] of calls) {
  test(`tts lexicon ${words.join(' ')}`, async (t) => {
    const home = temporaryHome(t);
    write(home, { version: 1, lexicon: [{ match: 'nginx', say: 'engine x' }, { match: 'um', say: '' }] });
    const { exit, stdout, stderr } = await tts(home, ['lexicon', ...words]);
    assert.deepEqual([exit, stdout, stderr], [code, out, error]);
  });
}

test('an empty lexicon tells how to begin', async (t) => {
  assert.match((await tts(temporaryHome(t), ['lexicon', 'list'])).stdout, /tts lexicon add nginx "engine x"/);
});
