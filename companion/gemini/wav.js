// Sound as the provider sends it, and as a WAV file: 16-bit samples, one channel.

import { cleanReason } from './cleaning.js';
import { SpeechFailure } from './failure.js';

const bytesPerSample = 2;
const headerBytes = 44;

/**
 * @typedef {{ rate: number, pcm: Buffer }} Sound little-endian 16-bit samples
 */

/**
 * The sound in a part of an answer, "audio/L16;codec=pcm;rate=24000" and base64.
 * @returns {Sound}
 */
export function soundFrom(part) {
  const { mimeType: type, data: base64 } = part?.inlineData ?? {};
  const mimeType = typeof type === 'string' ? type : '';
  const data = typeof base64 === 'string' ? base64 : '';
  const rate = Number(/;\s*rate=(\d+)/.exec(mimeType)?.[1] ?? 24_000);
  if (!/^audio\/(l16|pcm)\b/i.test(mimeType) || rate < 8000 || rate > 192_000) {
    throw new SpeechFailure(`Gemini sent ${cleanReason(mimeType) || 'no sound'} where speech was asked for`);
  }
  const pcm = Buffer.from(data, 'base64');
  const whole = pcm.subarray(0, pcm.length - (pcm.length % bytesPerSample));
  if (!whole.length) throw new SpeechFailure('Gemini sent an empty sound');
  return { rate, pcm: whole };
}

/**
 * One sound after the other. All of a model's have the same rate.
 * @param {Sound[]} sounds
 * @returns {Sound}
 */
export function joined(sounds) {
  const [{ rate }] = sounds;
  if (sounds.some((sound) => sound.rate !== rate)) throw new SpeechFailure('Gemini sent sounds of several rates');
  return { rate, pcm: Buffer.concat(sounds.map((sound) => sound.pcm)) };
}

export function scaled({ rate, pcm }, percent) {
  const quieter = Buffer.alloc(pcm.length);
  for (let i = 0; i < pcm.length; i += bytesPerSample) {
    quieter.writeInt16LE(Math.trunc((pcm.readInt16LE(i) * percent) / 100), i);
  }
  return { rate, pcm: quieter };
}

/** @param {Sound} sound */
export function wavOf({ rate, pcm }) {
  const header = Buffer.alloc(headerBytes);
  header.write('RIFF', 0);
  header.writeUInt32LE(headerBytes - 8 + pcm.length, 4);
  header.write('WAVEfmt ', 8);
  header.writeUInt32LE(16, 16); // length of the format that follows
  header.writeUInt16LE(1, 20); // plain samples
  header.writeUInt16LE(1, 22); // channels
  header.writeUInt32LE(rate, 24);
  header.writeUInt32LE(rate * bytesPerSample, 28);
  header.writeUInt16LE(bytesPerSample, 32);
  header.writeUInt16LE(8 * bytesPerSample, 34);
  header.write('data', 36);
  header.writeUInt32LE(pcm.length, 40);
  return Buffer.concat([header, pcm]);
}
