import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { splitMembers } from '../lib/jsonMembers.js';
import { SharedDocument, updateDocument } from '../lib/sharedDocument.js';
import { temporaryHome } from './home.js';

test('members keep their own text, and the last of two with one name wins', () => {
  const text = ' {"a" : 1.0, "b":{"x":[1,"}"]} ,"c":"\\"\\ud800","d":12345678901234567890,"a":-2e3\n} ';
  assert.deepEqual([...splitMembers(text)],
    [['a', '-2e3'], ['b', '{"x":[1,"}"]}'], ['c', '"\\"\\ud800"'], ['d', '12345678901234567890']]);
});

test('an empty object has no members, and what is no object is refused', () => {
  assert.equal(splitMembers('{}').size, 0);
  for (const text of ['', '[]', '1', 'null', '{"a":1', '"{}"']) assert.throws(() => splitMembers(text), SyntaxError);
});

test('an update keeps what it does not touch, byte for byte, and sorts by name', async (t) => {
  const path = temporaryHome(t).inShared('state.json');
  fs.writeFileSync(path, '{"speed":1.0,"z":{"big":12345678901234567890},"__proto__":{"a":1}}');
  await updateDocument(path, (document) => document.set('list', [{ a: 1 }]));
  assert.equal(fs.readFileSync(path, 'utf8'),
    '{\n  "__proto__": {"a":1},\n  "list": [\n    {\n      "a": 1\n    }\n  ],\n  "speed": 1.0,\n  "z": {"big":12345678901234567890}\n}');
  assert.equal(fs.statSync(path).mode & 0o777, 0o600);
});

test('nothing is written when nothing changed', async (t) => {
  const path = temporaryHome(t).inShared('state.json');
  fs.writeFileSync(path, '{"list": [1,   2], "speed":1.0}');
  await updateDocument(path, (document) => { document.set('list', [1, 2]); document.set('speed', 1); });
  assert.equal(fs.readFileSync(path, 'utf8'), '{"list": [1,   2], "speed":1.0}');
});

test('a broken document is set aside and begun anew', async (t) => {
  const path = temporaryHome(t).inShared('state.json');
  fs.writeFileSync(path, '{"voice": "af_');
  await updateDocument(path, (document) => document.set('muted', true));
  assert.equal(fs.readFileSync(path, 'utf8'), '{\n  "muted": true\n}');
  assert.equal(fs.readFileSync(`${path}.unreadable`, 'utf8'), '{"voice": "af_');
});

test('a document of blanks is begun anew without a copy', async (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('state.json'), ' \n');
  await updateDocument(home.inShared('state.json'), (document) => document.set('muted', true));
  assert.deepEqual(fs.readdirSync(home.shared), ['state.json']);
});

test('a byte-order mark is no fault: the document is read, and loses it when it is rewritten', async (t) => {
  const path = temporaryHome(t).inShared('state.json');
  fs.writeFileSync(path, '\ufeff{"voice":"af_heart","speed":1.0}');
  assert.equal(SharedDocument.read(path).get('voice'), 'af_heart');
  await updateDocument(path, (document) => document.set('muted', true));
  assert.equal(fs.readFileSync(path, 'utf8'), '{\n  "muted": true,\n  "speed": 1.0,\n  "voice": "af_heart"\n}');
  assert.equal(fs.existsSync(`${path}.unreadable`), false);
  for (const text of ['\ufeff', '\ufeff\ufeff{}']) assert.throws(() => splitMembers(text), SyntaxError);
});

test('a document that is there and cannot be read is not replaced', async (t) => {
  const path = temporaryHome(t).inShared('state.json');
  fs.mkdirSync(path);
  await assert.rejects(updateDocument(path, (document) => document.set('muted', true)), { code: 'EISDIR' });
  assert.ok(fs.statSync(path).isDirectory());
  assert.equal(fs.existsSync(`${path}.lock`), false);
});

test('the folder is made where it is missing', async (t) => {
  const path = `${temporaryHome(t).home}/new/state.json`;
  await updateDocument(path, (document) => document.set('muted', true));
  assert.equal(SharedDocument.read(path).get('muted'), true);
});

test('reading is tolerant', (t) => {
  const home = temporaryHome(t);
  assert.deepEqual(SharedDocument.read(home.inShared('none.json')).list('sessions'), []);
  fs.writeFileSync(home.inShared('bad.json'), '{');
  assert.equal(SharedDocument.read(home.inShared('bad.json')).get('voice'), undefined);
});
