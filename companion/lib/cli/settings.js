// Settings live in state.json, and the service follows it within 1.5 seconds. They are kept also while it isn't
// running.

import { socketPath, statePath } from '../places.js';
import { SharedDocument, updateDocument } from '../sharedDocument.js';
import { settingsOf } from '../stateDefaults.js';
import { findVoice, voices } from '../voices.js';
import { usageError } from '../words/failure.js';
import { columns, plain } from '../words/output.js';
import { changeDocument, readDocument } from './documents.js';

const read = ({ environment, output }) => settingsOf(readDocument(statePath(environment), output));

/** Changes settings by what `change` makes of the present ones, and says when that takes effect. */
async function keep(context, change, describe) {
  const { environment, output } = context;
  const path = statePath(environment);
  const settings = await changeDocument(path, output, (options) => updateDocument(path, (document) => {
    for (const [key, value] of Object.entries(change(settingsOf(document)))) document.set(key, value);
    return settingsOf(document);
  }, options));
  output.say(describe(settings));
  const { serviceState } = await import('../serviceSocket.js');
  const state = await serviceState({ path: socketPath(environment) });
  if (state === 'absent') output.note("The Sonra service isn't running; this is kept for when it starts.");
  if (state === 'silent') output.note("The Sonra service doesn't answer; this is kept for when it does.");
  return { settings, running: state !== 'absent' };
}

/** Of each setting that takes a word, what is made of that; fails where nothing can be. */
const parsers = { volume: parseVolume, speed: parseSpeed, voice: parseVoice, captions: parseSwitch };

export function judge({ command, positionals: [word] }) {
  if (word !== undefined) parsers[command.name](word, settingsOf(new SharedDocument()));
}

/** One setting of the same name as its command: shown, or set to what `parsers` make of the word. */
function single(key, describe) {
  return async (context) => {
    const { output, positionals: [word] } = context;
    if (word === undefined) {
      const settings = read(context);
      output.say(describe(settings));
      output.result({ [key]: settings[key] });
      return;
    }
    const change = (settings) => ({ [key]: parsers[key](word, settings) });
    const { settings, running } = await keep(context, change, describe);
    output.result({ [key]: settings[key], running });
  };
}

function parseVolume(word, { volume }) {
  const found = /^([+-]?)(\d{1,3})%?$/.exec(word);
  if (!found || Number(found[2]) > 100) throw usageError(`"${word}" is no volume: 0 to 100, or a change such as +10.`);
  const [, sign, digits] = found;
  if (!sign) return Number(digits);
  return Math.min(100, Math.max(0, volume + Number(sign + digits)));
}

function parseSpeed(word) {
  const value = /^\d{1,2}(\.\d{1,3})?x?$/.test(word) ? Number.parseFloat(word) : Number.NaN;
  if (!(value >= 0.5 && value <= 3)) throw usageError(`"${word}" is no speed: 0.5 to 3.`);
  return value;
}

function parseSwitch(word) {
  if (word !== 'on' && word !== 'off') throw usageError(`Captions are "on" or "off", not "${word}".`);
  return word === 'on';
}

function parseVoice(word) {
  const found = findVoice(word);
  if (!found) throw usageError(`There is no voice "${word}". "tts voice" lists them.`);
  return found;
}

export const volume = single('volume', (now) => `Volume ${now.volume}%.`);
export const speed = single('speed', (now) => `Speed ${now.speed}x.`);
export const captions = single('captions', (now) => `Captions are ${now.captions ? 'on' : 'off'}.`);

/** "tts mute", "tts unmute" */
export async function muting(context) {
  const { settings, running } = await keep(context, () => context.command.fixed,
    (now) => (now.muted ? 'Muted.' : 'Not muted.'));
  context.output.result({ muted: settings.muted, running });
}

async function listVoices(context) {
  const { output } = context;
  const chosen = read(context).voice;
  const rows = columns(voices.map(({ id, name, descriptor }) =>
    [id === chosen ? '*' : ' ', id, name, descriptor]), '');
  output.say(...rows.map((row) => (row.startsWith('*') ? output.style('bold', row) : row)));
  if (!voices.some(({ id }) => id === chosen)) output.note(`The voice in use, "${plain(chosen)}", is none of these.`);
  output.result({ voice: chosen, voices });
}

/** "tts voice [ID]" */
export async function voice(context) {
  const { positionals: [word] } = context;
  if (word === undefined) return listVoices(context);
  const found = parseVoice(word);
  const { running } = await keep(context, () => ({ voice: found.id }), () => `Voice ${found.name} (${found.id}).`);
  context.output.result({ voice: found.id, name: found.name, running });
  return undefined;
}
