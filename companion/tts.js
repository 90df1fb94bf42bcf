#!/usr/bin/env node
// Cloud speech and image descriptions, by the Gemini interface.
//
//   tts.js TEXTFILE OUT.wav --gemini [--play]   speaks a text into a file, and with --play aloud as well
//   tts.js --describe-image FILE                prints what an image shows
//
// Environment: GOOGLE_API_KEY; TTS_VOICE, one of the provider's voices; GEMINI_API_BASE, another address of the
// interface; and for --play TTS_PLAYER ("nowplaying" hands each piece to the service, "none" plays nothing, anything else
// plays here through paplay, pw-play or aplay), TTS_VOLUME, TTS_SERVICE_SOCK, TTS_NARRATION_TEXT.
//
// Ends with 0 when the file is complete or the description printed, with 1 and a reason otherwise, with 2 when it wasn't
// called as above.

import fs from 'node:fs';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { cleanReason, cleanWords } from './gemini/cleaning.js';
import { GeminiClient } from './gemini/client.js';
import { describeImage } from './gemini/describing.js';
import { SpeechFailure } from './gemini/failure.js';
import { piecesOf } from './gemini/pieces.js';
import { makePlayer, TemporaryFiles } from './gemini/playing.js';
import { speak, voiceName } from './gemini/speech.js';
import { joined, wavOf } from './gemini/wav.js';
import { packageVersion } from './lib/version.js';
import { fileBehind, replaceFile } from './lib/wholeFile.js';

/** Whoever waits for a description gives up after a minute. */
const describeLimit = 55_000;
const usage = 'usage: tts.js TEXTFILE OUT.wav --gemini [--play]\n       tts.js --describe-image FILE';

const key = (process.env.GOOGLE_API_KEY ?? '').trim();

class UsageError extends Error {}

function argumentsFrom(argv) {
  const flag = { type: 'boolean', default: false };
  try {
    const { values, positionals } = parseArgs({
      args: argv,
      allowPositionals: true,
      options: { gemini: flag, play: flag, 'describe-image': { type: 'string' }, help: flag, version: flag },
    });
    if (values.help) return { answer: usage };
    if (values.version) return { answer: `tts.js ${packageVersion() ?? 'unknown'}` };
    const image = values['describe-image'];
    if (image !== undefined && !positionals.length && !values.gemini && !values.play) return { image };
    if (image === undefined && values.gemini && positionals.length === 2) {
      return { textFile: positionals[0], out: positionals[1], isPlaying: values.play };
    }
  } catch {
    // Said below.
  }
  throw new UsageError(usage);
}

function textFrom(file) {
  try {
    // Whoever opens a pipe may wait for ever.
    if (!fs.statSync(file).isFile()) throw new SpeechFailure("can't read the text: it is no file");
    return new TextDecoder('utf-8', { fatal: true }).decode(fs.readFileSync(file));
  } catch (error) {
    if (error instanceof SpeechFailure) throw error;
    throw new SpeechFailure(`can't read the text: ${error.code}`);
  }
}

/** Asked before anything is spoken, which costs time and money. */
function targetFor(out) {
  try {
    const file = fileBehind(out);
    if (file === undefined) throw new SpeechFailure(`can't write the sound: ${out} is no file that could be replaced`);
    return file;
  } catch (error) {
    if (error instanceof SpeechFailure) throw error;
    throw new SpeechFailure(`can't write the sound: ${error.code}`);
  }
}

function writeSound(out, sound) {
  try {
    replaceFile(out, wavOf(sound), { temporary: path.join(path.dirname(out), `.${path.basename(out)}.${process.pid}`) });
  } catch (error) {
    throw new SpeechFailure(`can't write the sound: ${error.code}`);
  }
}

async function speakFile({ textFile, out, isPlaying }, files) {
  const pieces = piecesOf(textFrom(textFile), { isFirstAlone: isPlaying });
  if (!pieces.length) throw new SpeechFailure('there is nothing to speak');
  const file = targetFor(out);
  const client = new GeminiClient();
  const player = isPlaying ? makePlayer(process.env, files) : undefined;
  process.once('exit', () => player?.stop());
  const sounds = [];
  for (const piece of pieces) {
    const sound = await speak(client, piece, { voice: voiceName(process.env.TTS_VOICE) });
    sounds.push(sound);
    await player?.play(sound, piece);
  }
  writeSound(file, joined(sounds));
  await player?.finish();
}

async function run(argv, files) {
  const wanted = argumentsFrom(argv);
  if (wanted.answer !== undefined) {
    process.stdout.write(`${wanted.answer}\n`);
    return undefined;
  }
  if (wanted.image === undefined) return speakFile(wanted, files);
  const client = new GeminiClient(process.env, { limit: describeLimit });
  // Cleaned as a whole as well: what is put together of pieces may be what none of them is.
  process.stdout.write(`${cleanWords(await describeImage(client, wanted.image), key)}\n`);
  return undefined;
}

const files = new TemporaryFiles();
process.once('exit', () => files.remove());
for (const [signal, status] of [['SIGTERM', 143], ['SIGINT', 130], ['SIGHUP', 129]]) {
  process.once(signal, () => process.exit(status));
}
try {
  await run(process.argv.slice(2), files);
} catch (error) {
  const isKnown = error instanceof SpeechFailure || error instanceof UsageError;
  const words = error instanceof UsageError ? error.message : cleanReason(error.message, key);
  process.stderr.write(`${isKnown ? words : `unexpected failure: ${error.name}`}\n`);
  process.exitCode = error instanceof UsageError ? 2 : 1;
}
