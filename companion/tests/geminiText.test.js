import assert from 'node:assert/strict';
import test from 'node:test';

import { piecesOf } from '../gemini/pieces.js';
import { voiceName } from '../gemini/speech.js';
import { joined, scaled, soundFrom, wavOf } from '../gemini/wav.js';

const words = (text) => text.split(/\s+/).filter(Boolean);

test('a short text is one piece', () => {
  assert.deepEqual(piecesOf('One. Two.\nThree.'), ['One. Two.\nThree.']);
  assert.deepEqual(piecesOf(' \n\t'), []);
});

test('a long text is cut between sentences and loses no word', () => {
  const text = Array.from({ length: 200 }, (_, i) => `Sentence number ${i} is here.`).join(' ');
  const pieces = piecesOf(text);
  assert.ok(pieces.length > 1 && pieces.every((piece) => piece.length <= 1500 && piece.endsWith('.')));
  assert.deepEqual(words(pieces.join(' ')), words(text));
});

test('a sentence without an end is cut at blanks, one without blanks between characters', () => {
  const long = 'word '.repeat(900).trim();
  assert.deepEqual(words(piecesOf(long).join(' ')), words(long));
  const emoji = '😀'.repeat(1001);
  const pieces = piecesOf(emoji, { limit: 101 });
  assert.equal(pieces.join(''), emoji);
  assert.ok(pieces.every((piece) => piece.isWellFormed?.() ?? !/^[\uDC00-\uDFFF]|[\uD800-\uDBFF]$/.test(piece)));
});

test('Chinese is cut between its sentences', () => {
  const text = '你好世界。'.repeat(500);
  const pieces = piecesOf(text);
  assert.ok(pieces.length > 1 && pieces.every((piece) => piece.endsWith('。')));
  assert.equal(pieces.join(''), text);
});

test('no character that is made of several is cut', () => {
  for (const one of ['👩‍👩‍👧‍👦', 'e\u0301', '🇩🇪', '👍🏽', '한']) {
    const text = one.normalize('NFD').repeat(300);
    const pieces = piecesOf(text, { limit: 101 });
    assert.equal(pieces.join(''), text);
    const graphemes = new Set(pieces.flatMap((piece) => Array.from(new Intl.Segmenter().segment(piece), (s) => s.segment)));
    assert.deepEqual([...graphemes], [one.normalize('NFD')]);
  }
});

test('what holds nothing to speak is no piece', () => {
  assert.deepEqual(piecesOf('...\n---'), []);
  assert.deepEqual(piecesOf('One. Two.', { isFirstAlone: true }), ['One.', 'Two.']);
  assert.deepEqual(piecesOf('——.\nTwo.', { isFirstAlone: true }), ['Two.']);
});

test('the first sentence can stand alone, so that it is heard early', () => {
  assert.deepEqual(piecesOf('One. Two. Three.', { isFirstAlone: true }), ['One.', 'Two. Three.']);
});

test('a voice is one of the provider, whatever its case; a local one is replaced', () => {
  assert.equal(voiceName('puck'), 'Puck');
  assert.equal(voiceName('Kore'), 'Kore');
  for (const local of ['af_heart', '', undefined]) assert.equal(voiceName(local), 'Kore');
});

const part = (mimeType, pcm) => ({ inlineData: { mimeType, data: Buffer.from(pcm).toString('base64') } });

test('sound has the rate that the answer names', () => {
  assert.deepEqual(soundFrom(part('audio/L16;codec=pcm;rate=16000', [1, 2, 3, 4])), { rate: 16000, pcm: Buffer.from([1, 2, 3, 4]) });
  assert.equal(soundFrom(part('audio/L16', [1, 2])).rate, 24000);
  assert.deepEqual(soundFrom(part('audio/pcm;rate=24000', [1, 2, 3])).pcm, Buffer.from([1, 2]));
});

test('what is no sound is refused', () => {
  for (const bad of [part('audio/mpeg', [1, 2]), part('audio/L16;rate=1', [1, 2]), part('audio/L16', []), {}, undefined]) {
    assert.throws(() => soundFrom(bad), { name: 'SpeechFailure' });
  }
});

test('sounds are joined in order, and only if they have one rate', () => {
  const one = { rate: 24000, pcm: Buffer.from([1, 0]) };
  assert.deepEqual(joined([one, { rate: 24000, pcm: Buffer.from([2, 0]) }]).pcm, Buffer.from([1, 0, 2, 0]));
  assert.throws(() => joined([one, { rate: 16000, pcm: Buffer.from([2, 0]) }]), { name: 'SpeechFailure' });
});

test('a WAV file says what is in it', () => {
  const wav = wavOf({ rate: 24000, pcm: Buffer.from([1, 0, 2, 0]) });
  assert.equal(wav.toString('latin1', 0, 16), 'RIFF\x28\0\0\0WAVEfmt ');
  assert.deepEqual([wav.readUInt32LE(24), wav.readUInt32LE(28), wav.readUInt16LE(34), wav.readUInt32LE(40)], [24000, 48000, 16, 4]);
  assert.deepEqual(wav.subarray(44), Buffer.from([1, 0, 2, 0]));
});

test('half the volume is half of each sample', () => {
  const pcm = Buffer.alloc(4);
  pcm.writeInt16LE(-32768, 0);
  pcm.writeInt16LE(1000, 2);
  const half = scaled({ rate: 24000, pcm }, 50).pcm;
  assert.deepEqual([half.readInt16LE(0), half.readInt16LE(2)], [-16384, 500]);
});
