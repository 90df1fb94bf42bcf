// What the manual page says of --json is what is printed: each member is named there, and each that is named is printed.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import test from 'node:test';

import { mintCode } from '../lib/bridge/pairCode.js';
import { tts, writeState } from './commandLine.js';
import { fakeService } from './fakeService.js';
import { temporaryHome } from './home.js';

const page = fs.readFileSync(new URL('../../data/man/tts.1', import.meta.url), 'utf8');
const section = /^\.Sh JSON\n([\s\S]*?)^\.Sh /m.exec(page)[1];
const [before, rest] = section.split('.Bl -tag -width Ds\n');
const [list, after] = rest.split('\n.El\n');

const membersIn = (text) => new Set([...text.matchAll(/\bVa (\w+)/g)].map(([, name]) => name));
const general = membersIn(before);
const ofSession = membersIn(after);

/** Of each item of the page, by the first command that it is about. */
const items = new Map(list.split(/^\.It Cm /m).slice(1).map((item) => {
  const names = item.split('\n')[0].split(/[ ,]+/);
  return [names[0], { names, members: membersIn(item), text: item }];
}));

/** The names of all members, at every depth. */
function namesOf(value) {
  if (Array.isArray(value)) return value.flatMap(namesOf);
  if (value === null || typeof value !== 'object') return [];
  return Object.entries(value).flatMap(([name, inner]) => [name, ...namesOf(inner)]);
}

const session = (home, id) => {
  const transcript = path.join(home.home, `${id}.jsonl`);
  fs.writeFileSync(transcript, '{}\n');
  return { sessionId: id, cwd: '/srv/x', source: 'codex', transcript, mtimeMs: Date.now(), branch: 'main', title: 'Fix' };
};

const alive = { daemonStatus: async () => ({ alive: true, responding: true, pid: 7, bridgePort: 7842 }) };

/** Runs one command line and gives the object that it prints. */
const printed = async (home, argv, around) => JSON.parse((await tts(home, [...argv, '--json'], around)).stdout);

async function attaching(t) {
  const home = temporaryHome(t);
  await fakeService(t, home);
  writeState(home, { discoveredSessions: [session(home, 'aaaa'), session(home, 'aabb')] });
  const on = (...words) => printed(home, ['on', ...words], { neighbours: alive });
  return [await on('--session', 'aaaa'), await on('--session', 'aaaa'), await on('--session', 'aa')];
}

async function detaching(t) {
  const home = temporaryHome(t);
  writeState(home, { sessions: [{ id: 'aaaa', cwd: '/srv' }, { id: 'aabb', cwd: '/srv' }] });
  return [await printed(home, ['off']), await printed(home, ['off', '--all'])];
}

async function reporting(t) {
  const home = temporaryHome(t);
  writeState(home, { lastSpeakError: 'no voice', sessions: [session(home, 'aaaa')], discoveredSessions: [session(home, 'aaaa')] });
  return [await printed(home, ['status'], { neighbours: alive })];
}

async function steering(t) {
  const home = temporaryHome(t);
  await fakeService(t, home);
  return [await printed(home, ['pause']), await printed(home, ['open', 'tts://session/a'])];
}

async function setting(t) {
  const home = temporaryHome(t);
  const all = [['mute'], ['volume'], ['volume', '40'], ['speed', '2'], ['voice'], ['voice', 'heart'], ['captions', 'on']];
  return Promise.all(all.map((argv) => printed(home, argv)));
}

async function spelling(t) {
  const home = temporaryHome(t);
  const outputs = [await printed(home, ['lexicon', 'add', 'a', 'b'])];
  return [...outputs, await printed(home, ['lexicon', 'list']), await printed(home, ['lexicon', 'remove', 'a'])];
}

async function pairing(t) {
  const home = temporaryHome(t);
  const mint = (then) => ({ neighbours: { ...alive, mintCode: async (environment) => { then(); return mintCode({ environment }); } } });
  const tokens = JSON.stringify({ tokens: [{ label: 'Pixel', token: 'x', createdAt: 1 }] });
  const paired = () => setTimeout(() => fs.writeFileSync(home.inShared('bridge-tokens.json'), tokens), 50);
  const ended = { ...mint(() => {}), signal: AbortSignal.abort(143) };
  return [await printed(home, ['pair'], mint(() => {})), await printed(home, ['pair', '--wait'], mint(paired)),
    await printed(home, ['pair', '--wait'], ended)];
}

async function starting(t) {
  const home = temporaryHome(t);
  await fakeService(t, home);
  return [await printed(home, ['start'], { neighbours: { serviceParts: { daemonStatus: async () => ({ alive: true }) } } })];
}

async function quitting(t) {
  return [await printed(temporaryHome(t), ['quit'])];
}

async function installing(t) {
  const autostart = async () => ({ installAutostart: () => {} });
  return [await printed(temporaryHome(t), ['install'], { neighbours: { autostart } })];
}

/** A bundle that isn't sent, one that is, and one that is and can't be removed. */
async function bundling(t) {
  const home = temporaryHome(t);
  const file = path.join(home.home, 'x.zip');
  const outputs = [await printed(home, ['diag', '--send', `--out=${file}`])];
  let hinder = () => {};
  const server = http.createServer((request, response) => {
    hinder();
    request.resume().on('end', () => response.end('sonra-7KQ2M'));
  }).listen(0, '127.0.0.1');
  await once(server, 'listening');
  t.after(() => { server.closeAllConnections(); server.close(); });
  home.environment.SONRA_SUPPORT_URL = `http://127.0.0.1:${server.address().port}/`;
  const send = () => printed(home, ['diag', '--send', '--cleanup', `--out=${file}`]);
  outputs.push(await send());
  hinder = () => { fs.rmSync(file); fs.mkdirSync(file); };
  return [...outputs, await send()];
}

async function helping(t) {
  const home = temporaryHome(t);
  return [await printed(home, ['help']), await printed(home, ['--version'])];
}

const scenes = { on: attaching, off: detaching, status: reporting, pause: steering, mute: setting, lexicon: spelling,
  pair: pairing, start: starting, quit: quitting, install: installing, diag: bundling, help: helping };

test('the page has an item for each kind of output', () => assert.deepEqual([...items.keys()], Object.keys(scenes)));

for (const [name, scene] of Object.entries(scenes)) {
  test(`the page tells of what "${name}" and its like print, and of nothing else`, async (t) => {
    const { names, members } = items.get(name);
    const outputs = await scene(t);
    const found = new Set(outputs.flatMap(namesOf).filter((member) => !general.has(member)));
    const told = new Set([...members, ...names, ...ofSession]);
    assert.deepEqual([...found].filter((member) => !told.has(member)), [], 'not in the page');
    assert.deepEqual([...members].filter((member) => !found.has(member) && !general.has(member)), [], 'not printed');
  });
}

test('the page tells which of them are in which object of the status', async (t) => {
  const [status] = await reporting(t);
  for (const name of ['service', 'daemon', 'settings', 'playback']) {
    const [, text] = new RegExp(`^\\.Va ${name}\nwith\n([\\s\\S]*?) ;$`, 'm').exec(items.get('status').text);
    assert.deepEqual([...membersIn(text)].sort(), Object.keys(status[name]).sort(), name);
  }
});

test('the page names each kind of failure', () => {
  const source = ['cli/pair', 'words/failure', 'diag/diag'].map((file) =>
    fs.readFileSync(new URL(`../lib/${file}.js`, import.meta.url), 'utf8')).join('\n');
  const kinds = [...source.matchAll(/\bkind(?:: | = )'(\w+)'/g), ...source.matchAll(/^ {2}(\w+): '[^']* code /gm),
    ...source.matchAll(/why: '(\w+)'/g)].map(([, kind]) => kind);
  const words = [...before.matchAll(/^\.Dq (\w+)/gm)].map(([, word]) => word);
  assert.deepEqual([...new Set(kinds)].sort(), words.sort());
});
