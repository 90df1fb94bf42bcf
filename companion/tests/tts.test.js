import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import fs from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { errorAnswer, geminiServer, soundAnswer, textAnswer } from './geminiServer.js';
import { isAlive } from './daemonProcess.js';
import { temporaryHome, until } from './home.js';

const script = fileURLToPath(new URL('../tts.js', import.meta.url));
const key = 'AIza-script-key';

/** Samples that tell by their value which sentence they are. */
const pcmFor = (text) => Buffer.alloc(480, Buffer.from([text.length % 251, 0]));

const speaking = ({ body }) => soundAnswer(pcmFor(body.contents[0].parts[0].text));

async function lab(t, answer = speaking) {
  const home = temporaryHome(t);
  const server = await geminiServer(t, answer);
  const temporary = path.join(home.home, 'tmp');
  fs.mkdirSync(temporary);
  const environment = { ...home.environment, GOOGLE_API_KEY: key, GEMINI_API_BASE: server.base, TMPDIR: temporary };
  const textFile = path.join(home.home, 'text');
  return { ...home, server, environment, textFile, temporary, out: path.join(home.home, 'out.wav') };
}

function start(environment, ...argv) {
  const child = spawn(process.execPath, [script, ...argv], { env: environment, stdio: ['ignore', 'pipe', 'pipe'] });
  const result = { child, stdout: '', stderr: '' };
  child.stdout.on('data', (bytes) => { result.stdout += bytes; });
  child.stderr.on('data', (bytes) => { result.stderr += bytes; });
  result.ended = once(child, 'close').then(([status]) => ({ status, stdout: result.stdout, stderr: result.stderr }));
  return result;
}

const run = (...args) => start(...args).ended;

function samples(wav) {
  const bytes = fs.readFileSync(wav);
  assert.equal(bytes.toString('latin1', 0, 4), 'RIFF');
  assert.equal(bytes.readUInt32LE(40), bytes.length - 44);
  return bytes.subarray(44);
}

test('a text is spoken into a file by the voice that is asked for', async (t) => {
  const { environment, textFile, out, server } = await lab(t);
  fs.writeFileSync(textFile, 'Hello there.');
  assert.deepEqual(await run({ ...environment, TTS_VOICE: 'Puck' }, textFile, out, '--gemini'), { status: 0, stdout: '', stderr: '' });
  assert.deepEqual(samples(out), pcmFor('Hello there.'));
  assert.equal(fs.statSync(out).mode & 0o777, 0o600);
  const { generationConfig } = server.requests[0].body;
  assert.deepEqual(generationConfig.responseModalities, ['AUDIO']);
  assert.equal(generationConfig.speechConfig.voiceConfig.prebuiltVoiceConfig.voiceName, 'Puck');
  assert.equal(server.requests[0].headers['x-goog-api-key'], key);
});

test('a long text comes back as one file, in order', async (t) => {
  const { environment, textFile, out, server } = await lab(t);
  fs.writeFileSync(textFile, Array.from({ length: 150 }, (_, i) => `This is the sentence number ${i * i * i}.`).join(' '));
  assert.equal((await run(environment, textFile, out, '--gemini')).status, 0);
  assert.ok(server.requests.length > 2);
  const expected = server.requests.map(({ body }) => pcmFor(body.contents[0].parts[0].text));
  assert.deepEqual(samples(out), Buffer.concat(expected));
});

test('a bad key is a failure with the reason, without the key, without a file', async (t) => {
  const { environment, textFile, out, server, home } = await lab(t, () => errorAnswer(400, `API key ${key} not valid.`));
  fs.writeFileSync(textFile, 'Hello.');
  const { status, stderr } = await run(environment, textFile, out, '--gemini');
  assert.equal(status, 1);
  assert.equal(stderr, 'Gemini refused (400): API key [redacted] not valid.\n');
  assert.equal(server.requests.length, 1);
  assert.deepEqual(fs.readdirSync(home).sort(), ['.claude', 'text', 'tmp']);
});

test('a failure in the middle leaves no half file, and what stood there before stays', async (t) => {
  const { environment, textFile, out } = await lab(t, (request, index) => (index ? errorAnswer(403, 'quota') : speaking(request)));
  fs.writeFileSync(textFile, 'A sentence of some length. '.repeat(100));
  fs.writeFileSync(out, 'before');
  assert.equal((await run(environment, textFile, out, '--gemini')).status, 1);
  assert.equal(fs.readFileSync(out, 'utf8'), 'before');
});

test('calls that make no sense end with 2 and say how to call', async (t) => {
  const { environment, textFile, out } = await lab(t);
  const calls = [[], [textFile], [textFile, out], [textFile, out, '--gemini', 'more'], ['--describe-image'],
    ['--describe-image', 'x', '--gemini'], ['--nonsense']];
  for (const call of calls) {
    const { status, stderr } = await run(environment, ...call);
    assert.equal(status, 2, call.join(' '));
    assert.match(stderr, /^usage: tts\.js TEXTFILE/);
  }
});

test('help and the version are answers', async (t) => {
  const { environment } = await lab(t);
  const help = await run(environment, '--help');
  assert.deepEqual([help.status, help.stderr], [0, '']);
  assert.match(help.stdout, /^usage: tts\.js TEXTFILE/);
  assert.match((await run(environment, '--version')).stdout, /^tts\.js \d+\.\d+\.\d+\n$/);
});

test('what is no file is not waited for', async (t) => {
  const { environment, home, out } = await lab(t);
  const fifo = path.join(home, 'fifo');
  spawnSync('mkfifo', [fifo]);
  for (const [call, said] of [[[fifo, out, '--gemini'], "can't read the text: it is no file\n"],
    [['--describe-image', fifo], 'fifo is no file\n'], [['--describe-image', '/dev/zero'], 'zero is no file\n']]) {
    const running = start(environment, ...call);
    const limit = setTimeout(() => running.child.kill('SIGKILL'), 30_000);
    const { status, stderr } = await running.ended;
    clearTimeout(limit);
    assert.deepEqual([status, stderr], [1, said]);
  }
});

test('the player is not told the key', async (t) => {
  const here = await lab(t);
  const heard = path.join(here.home, 'heard');
  const player = fakePlayer(here.home, `env > ${heard}`);
  fs.writeFileSync(here.textFile, 'Hello.');
  assert.equal((await run({ ...here.environment, ...player }, here.textFile, here.out, '--gemini', '--play')).status, 0);
  const seen = fs.readFileSync(heard, 'utf8');
  assert.ok(seen.includes('TTS_PLAYER=') && !seen.includes(key));
});

test('a text that is missing, empty or no UTF-8 is a failure with a reason', async (t) => {
  const { environment, textFile, out, server } = await lab(t);
  assert.equal((await run(environment, textFile, out, '--gemini')).stderr, "can't read the text: ENOENT\n");
  fs.writeFileSync(textFile, ' \n');
  assert.equal((await run(environment, textFile, out, '--gemini')).stderr, 'there is nothing to speak\n');
  fs.writeFileSync(textFile, Buffer.from([0xff, 0xfe]));
  assert.equal((await run(environment, textFile, out, '--gemini')).status, 1);
  assert.equal(server.requests.length, 0);
});

test('an output that is no file is neither replaced nor waited for, and nothing is asked', async (t) => {
  const { environment, textFile, home, server } = await lab(t);
  fs.writeFileSync(textFile, 'Hello.');
  const fifo = path.join(home, 'fifo');
  spawnSync('mkfifo', [fifo]);
  // A device of the test's own would need rights that not every user has; a link to one stands for it.
  const device = path.join(home, 'device');
  fs.symlinkSync('/dev/null', device);
  for (const out of [fifo, device, home]) {
    const { status, stderr } = await run(environment, textFile, out, '--gemini');
    assert.deepEqual([status, stderr], [1, `can't write the sound: ${out} is no file that could be replaced\n`]);
  }
  assert.equal(server.requests.length, 0);
  assert.ok(fs.statSync(fifo).isFIFO() && fs.lstatSync(device).isSymbolicLink());
});

test('a link to a file stays one', async (t) => {
  const { environment, textFile, home, out } = await lab(t);
  fs.writeFileSync(textFile, 'Hello.');
  fs.writeFileSync(out, 'before');
  fs.symlinkSync('out.wav', path.join(home, 'link'));
  assert.equal((await run(environment, textFile, path.join(home, 'link'), '--gemini')).status, 0);
  assert.ok(fs.lstatSync(path.join(home, 'link')).isSymbolicLink());
  assert.deepEqual(samples(out), pcmFor('Hello.'));
});

test('an output that cannot be written is a failure with a reason', async (t) => {
  const { environment, textFile } = await lab(t);
  fs.writeFileSync(textFile, 'Hello.');
  const result = await run(environment, textFile, '/nowhere/out.wav', '--gemini');
  assert.deepEqual([result.status, result.stderr], [1, "can't write the sound: ENOENT\n"]);
});

async function service(t, home) {
  const lines = [];
  const server = net.createServer((socket) => {
    let text = '';
    socket.on('data', (bytes) => { text += bytes; });
    socket.on('end', () => lines.push(...text.split('\n').filter(Boolean).map((line) => JSON.parse(line))));
  }).listen(home.inShared('service.sock'));
  await once(server, 'listening');
  t.after(() => server.close());
  return lines;
}

test('with --play each piece is handed to the service as soon as it is there, and then belongs to it', async (t) => {
  const here = await lab(t);
  const lines = await service(t, here);
  fs.writeFileSync(here.textFile, 'First. Second. Third.');
  const environment = { ...here.environment, TTS_PLAYER: 'nowplaying', TTS_SERVICE_SOCK: here.inShared('service.sock') };
  assert.deepEqual(await run(environment, here.textFile, here.out, '--gemini', '--play'), { status: 0, stdout: '', stderr: '' });
  assert.deepEqual(lines.map(({ cmd, text, snippet }) => ({ cmd, text, snippet })), [
    { cmd: 'play', text: 'First.', snippet: 'First.' }, { cmd: 'play', text: 'Second. Third.', snippet: 'Second. Third.' }]);
  assert.deepEqual(samples(lines[0].wav), pcmFor('First.'));
  assert.deepEqual(samples(here.out), Buffer.concat([pcmFor('First.'), pcmFor('Second. Third.')]));
});

test('with --play and no service the failure says so, and no file of its own stays', async (t) => {
  const { environment, textFile, out, temporary } = await lab(t);
  fs.writeFileSync(textFile, 'Hello.');
  const { status, stderr } = await run({ ...environment, TTS_PLAYER: 'nowplaying' }, textFile, out, '--gemini', '--play');
  assert.equal(status, 1);
  assert.match(stderr, /^can't reach the service: /);
  assert.deepEqual(fs.readdirSync(temporary), []);
});

/** A player that notes what it was given. */
function fakePlayer(home, body) {
  const bin = path.join(home, 'bin');
  fs.mkdirSync(bin);
  fs.writeFileSync(path.join(bin, 'paplay'), `#!/bin/sh\n${body}\n`, { mode: 0o755 });
  return { PATH: `${bin}:/usr/bin:/bin`, TTS_PLAYER: 'paplay' };
}

test('played here, the pieces are heard one after the other, at the volume that is asked for', async (t) => {
  const here = await lab(t);
  const heard = path.join(here.home, 'heard');
  // Two that play at once would leave their marks side by side.
  const player = fakePlayer(here.home, `printf '(' >> ${heard}; sleep 0.3; tail -c 480 "$1" >> ${heard}; printf ')' >> ${heard}`);
  fs.writeFileSync(here.textFile, 'First. Second. Third.');
  const environment = { ...here.environment, ...player, TTS_VOLUME: '50' };
  assert.equal((await run(environment, here.textFile, here.out, '--gemini', '--play')).status, 0);
  const bytes = fs.readFileSync(heard);
  assert.equal(bytes.length, 964);
  assert.deepEqual([bytes[0], bytes[481], bytes[482], bytes[963]].map((byte) => String.fromCharCode(byte)).join(''), '()()');
  assert.deepEqual([bytes.readInt16LE(1), bytes.readInt16LE(483)], [3, 7]);
  assert.deepEqual(fs.readdirSync(here.temporary), []);
});

test('a player that fails is a failure with its own words', async (t) => {
  const here = await lab(t);
  const player = fakePlayer(here.home, 'echo no such device >&2; exit 3');
  fs.writeFileSync(here.textFile, 'Hello.');
  const { status, stderr } = await run({ ...here.environment, ...player }, here.textFile, here.out, '--gemini', '--play');
  assert.deepEqual([status, stderr], [1, 'paplay failed: no such device\n']);
});

test('ended early, it takes its player and its files along', async (t) => {
  const here = await lab(t);
  const started = path.join(here.home, 'started');
  const player = fakePlayer(here.home, `echo $$ > ${started}; exec sleep 60`);
  fs.writeFileSync(here.textFile, 'Hello.');
  const running = start({ ...here.environment, ...player }, here.textFile, here.out, '--gemini', '--play');
  const pid = await until(() => fs.existsSync(started) && Number(fs.readFileSync(started, 'utf8')), { what: 'the player' });
  running.child.kill('SIGTERM');
  assert.equal((await running.ended).status, 143);
  assert.deepEqual(fs.readdirSync(here.temporary), []);
  await until(() => !isAlive(pid), { what: "the player's end" });
});

const png = Buffer.from('iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAQAAAC1HAwCAAAAC0lEQVR42mNk+A8AAQUBAScY42YAAAAASUVORK5CYII=', 'base64');

test('an image is described on standard output', async (t) => {
  const { environment, home, server } = await lab(t, () => textAnswer('A grey ', 'square on its own.'));
  fs.writeFileSync(path.join(home, 'picture'), png);
  const result = await run(environment, '--describe-image', path.join(home, 'picture'));
  assert.deepEqual(result, { status: 0, stdout: 'A grey square on its own.\n', stderr: '' });
  assert.deepEqual(server.requests[0].body.contents[0].parts[0].inlineData, { mimeType: 'image/png', data: png.toString('base64') });
});

test('a description cannot steer the terminal, nor tell the key, not even in pieces', async (t) => {
  const { environment, home } = await lab(t, () => textAnswer('A cat\u001b[2J', '\u009b, and test', '-key-123.'));
  fs.writeFileSync(path.join(home, 'picture'), png);
  const result = await run({ ...environment, GOOGLE_API_KEY: 'test-key-123' }, '--describe-image', path.join(home, 'picture'));
  assert.equal(result.stdout, 'A cat[2J, and [redacted].\n');
});

test('what is no image, is missing or is too large is refused before anything is sent', async (t) => {
  const { environment, home, server } = await lab(t);
  const file = path.join(home, 'picture');
  assert.equal((await run(environment, '--describe-image', file)).stderr, "can't read picture: ENOENT\n");
  fs.writeFileSync(file, 'plain text');
  assert.match((await run(environment, '--describe-image', file)).stderr, /^picture is not an image/);
  fs.writeFileSync(file, png);
  fs.truncateSync(file, 15 * 1024 * 1024);
  assert.equal((await run(environment, '--describe-image', file)).stderr, 'picture is larger than 14 MB\n');
  assert.equal(server.requests.length, 0);
});

test('without a key it says what to do', async (t) => {
  const { environment, home } = await lab(t);
  fs.writeFileSync(path.join(home, 'picture'), png);
  const { status, stderr } = await run({ ...environment, GOOGLE_API_KEY: '' }, '--describe-image', path.join(home, 'picture'));
  assert.deepEqual([status, stderr], [1, 'no Gemini key: set GOOGLE_API_KEY or save one in Settings\n']);
});
