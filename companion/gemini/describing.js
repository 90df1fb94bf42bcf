// What an image shows, in words that can be read aloud.

import fs from 'node:fs';
import path from 'node:path';

import { SpeechFailure } from './failure.js';

const model = 'gemini-2.5-flash';
/** What the provider takes inline is 20 MB for the whole request; base64 adds a third. */
const imageLimit = 14 * 1024 * 1024;
const prompt =
  'Describe this image for somebody who hears the description read aloud: first what it is, then what matters in it, ' +
  'in three to six plain sentences. Say what text it shows where that is short. No lists, no Markdown.';

const signatures = [
  ['image/png', (bytes) => bytes.subarray(0, 4).equals(Buffer.from([0x89, 0x50, 0x4e, 0x47]))],
  ['image/jpeg', (bytes) => bytes.subarray(0, 3).equals(Buffer.from([0xff, 0xd8, 0xff]))],
  ['image/gif', (bytes) => bytes.toString('latin1', 0, 4) === 'GIF8'],
  ['image/webp', (bytes) => bytes.toString('latin1', 0, 4) === 'RIFF' && bytes.toString('latin1', 8, 12) === 'WEBP'],
  ['image/heic', (bytes) => /^ftyp(heic|heix|mif1)/.test(bytes.toString('latin1', 4, 12))],
];

/** @returns {{ mimeType: string, data: string }} */
export function imageFrom(file) {
  const name = path.basename(file);
  let bytes;
  try {
    const stat = fs.statSync(file);
    // Whoever opens a pipe may wait for ever.
    if (!stat.isFile()) throw new SpeechFailure(`${name} is no file`);
    const { size } = stat;
    if (size > imageLimit) throw new SpeechFailure(`${name} is larger than 14 MB`);
    bytes = fs.readFileSync(file);
  } catch (error) {
    if (error instanceof SpeechFailure) throw error;
    throw new SpeechFailure(`can't read ${name}: ${error.code}`);
  }
  const known = signatures.find(([, matches]) => matches(bytes));
  if (!known) throw new SpeechFailure(`${name} is not an image that can be described (PNG, JPEG, GIF, WebP, HEIC)`);
  return { mimeType: known[0], data: bytes.toString('base64') };
}

/** @param {import('./client.js').GeminiClient} client */
export async function describeImage(client, file) {
  const parts = await client.generate(model, { contents: [{ parts: [{ inlineData: imageFrom(file) }, { text: prompt }] }] });
  const words = parts.map((part) => part?.text).map((text) => (typeof text === 'string' ? text : '')).join('').trim();
  if (!words) throw new SpeechFailure('Gemini gave an empty description');
  return words;
}
