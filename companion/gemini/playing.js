// --play: each piece is handed to the service's queue, or played here through a program of the sound server.

import { spawn } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

import { sendCommand } from '../lib/serviceSocket.js';
import { SpeechFailure } from './failure.js';
import { scaled, wavOf } from './wav.js';

const players = ['paplay', 'pw-play', 'aplay'];
const snippetCharacters = 240;
const graceMs = 10_000;
const serviceLimit = 5000;

function found(program, environment) {
  const folders = (environment.PATH ?? '').split(':').filter(Boolean);
  return folders.map((folder) => path.join(folder, program)).find((file) => {
    try {
      fs.accessSync(file, fs.constants.X_OK);
      return true;
    } catch {
      return false;
    }
  });
}

/** A program that plays has no business with it. */
function withoutKey({ GOOGLE_API_KEY: _, ...environment }) {
  return environment;
}

/** 0 to 100. */
function volumePercent(environment) {
  const volume = /^-?\d+$/.test(environment.TTS_VOLUME ?? '') ? Number(environment.TTS_VOLUME) : 100;
  return Math.min(100, Math.max(0, volume));
}

/**
 * Files of this process alone. The folder's name tells the service whose it is: what stays behind because this process
 * was killed is removed when the service starts again.
 */
export class TemporaryFiles {
  #folder;
  #files = new Set();

  write(bytes) {
    this.#folder ??= this.#make();
    const file = path.join(this.#folder, `${randomBytes(8).toString('hex')}.wav`);
    this.#files.add(file);
    fs.writeFileSync(file, bytes, { mode: 0o600, flag: 'wx' });
    return file;
  }

  /** Somebody else's from now on. */
  giveAway(file) {
    this.#files.delete(file);
  }

  remove() {
    for (const file of this.#files) fs.rmSync(file, { force: true });
    this.#files.clear();
    try {
      if (this.#folder) fs.rmdirSync(this.#folder);
    } catch {
      // Somebody still needs a file in it.
    }
  }

  #make() {
    const folder = path.join(os.tmpdir(), `sonra-${process.getuid()}-${process.pid}-${randomBytes(8).toString('hex')}`);
    fs.mkdirSync(folder, { mode: 0o700 });
    return folder;
  }
}

/** Hands each piece to the service's queue, which plays its file and then removes it. */
class ServicePlayer {
  constructor(environment, files) {
    this.environment = environment;
    this.files = files;
  }

  async play(sound, text) {
    const wav = this.files.write(wavOf(sound));
    const snippet = [...(this.environment.TTS_NARRATION_TEXT || text)].slice(0, snippetCharacters).join('');
    const { TTS_SERVICE_SOCK: path } = this.environment;
    const options = { limit: serviceLimit, ...(path && { path }) };
    try {
      await sendCommand('play', { wav, text, title: 'Claude', artist: 'TTS', snippet }, options);
    } catch (error) {
      throw new SpeechFailure(`can't reach the service: ${error.cause?.message ?? error.message}`);
    }
    this.files.giveAway(wav);
  }

  /** The service plays on without this process. */
  async finish() {}

  stop() {}
}

/** Plays here. The next piece is made while this one is heard. */
class LocalPlayer {
  #ended = Promise.resolve();
  #child;

  constructor(environment, files) {
    const wanted = environment.TTS_PLAYER;
    const order = [...players.filter((name) => name === wanted), ...players];
    this.program = order.map((name) => found(name, environment)).find(Boolean);
    if (!this.program) throw new SpeechFailure(`no player found (looked for ${players.join(', ')})`);
    this.percent = volumePercent(environment);
    this.environment = environment;
    this.files = files;
  }

  async play(sound) {
    await this.finish();
    const wav = this.files.write(wavOf(this.percent === 100 ? sound : scaled(sound, this.percent)));
    const seconds = sound.pcm.length / 2 / sound.rate;
    this.#ended = this.#run(wav, seconds * 1000 + graceMs);
    // Whoever asks for the end gets the failure; until then it is nobody's.
    this.#ended.catch(() => {});
  }

  finish() {
    return this.#ended;
  }

  stop() {
    this.#child?.kill();
  }

  #run(wav, limit) {
    return new Promise((resolve, reject) => {
      const name = path.basename(this.program);
      const child = spawn(this.program, [wav], { stdio: ['ignore', 'ignore', 'pipe'], env: withoutKey(this.environment), timeout: limit });
      this.#child = child;
      let words = '';
      child.stderr.on('data', (bytes) => { words = (words + bytes).slice(-1000); });
      child.on('error', (error) => reject(new SpeechFailure(`can't start ${name}: ${error.code}`)));
      child.on('close', (status, signal) => {
        if (status === 0) resolve();
        else reject(new SpeechFailure(`${name} failed: ${words.trim() || (signal ?? `status ${status}`)}`));
      });
    });
  }
}

/** What TTS_PLAYER asks for: "nowplaying" the service, "none" nobody, anything else a program here. */
export function makePlayer(environment, files) {
  if (environment.TTS_PLAYER === 'none') return { async play() {}, async finish() {}, stop() {} };
  return environment.TTS_PLAYER === 'nowplaying' ? new ServicePlayer(environment, files) : new LocalPlayer(environment, files);
}
