// Settings live in state.json, and the service follows it within 1.5 seconds. They are kept also while it isn't
// running.

import { socketPath, statePath } from '../places.js';
import { updateDocument } from '../sharedDocument.js';
import { settingsOf } from '../stateDefaults.js';
import { readDocument } from './documents.js';
import { usageError } from '../words/failure.js';

const read = ({ environment, output }, options) => settingsOf(readDocument(statePath(environment), output, options));

/** Changes settings by what `change` makes of the present ones, and says when that takes effect. */
async function keep(context, change, describe) {
  const { environment, output } = context;
  // Judged before the lock is taken.
  change(read(context, { isWritten: true }));
  const settings = await updateDocument(statePath(environment), (document) => {
    for (const [key, value] of Object.entries(change(settingsOf(document)))) document.set(key, value);
    return settingsOf(document);
  });
  output.say(describe(settings));
  const { serviceState } = await import('../serviceSocket.js');
  const state = await serviceState({ path: socketPath(environment) });
  if (state === 'absent') output.note("The Sonra service isn't running; this is kept for when it starts.");
  if (state === 'silent') output.note("The Sonra service doesn't answer; this is kept for when it does.");
  return { settings, running: state !== 'absent' };
}

/** One setting of the same name as its command: shown, or set to what `parse` makes of the word. */
function single(key, { parse, describe }) {
  return async (context) => {
    const { output, positionals: [word] } = context;
    if (word === undefined) {
      const settings = read(context);
      output.say(describe(settings));
      output.result({ [key]: settings[key] });
      return;
    }
    const change = (settings) => ({ [key]: parse(word, settings) });
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

export const volume = single('volume', { parse: parseVolume, describe: (now) => `Volume ${now.volume}%.` });
export const speed = single('speed', { parse: parseSpeed, describe: (now) => `Speed ${now.speed}x.` });
export const captions = single('captions', {
  parse: parseSwitch,
  describe: (now) => `Captions are ${now.captions ? 'on' : 'off'}.`,
});

/** "tts mute", "tts unmute" */
export async function muting(context) {
  const { settings, running } = await keep(context, () => context.command.fixed,
    (now) => (now.muted ? 'Muted.' : 'Not muted.'));
  context.output.result({ muted: settings.muted, running });
}

async function listVoices(context) {
  const { output } = context;
  const [{ voices }, { columns, plain }] = await Promise.all([import('../voices.js'), import('../words/output.js')]);
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
  const { findVoice } = await import('../voices.js');
  const found = findVoice(word);
  if (!found) throw usageError(`There is no voice "${word}". "tts voice" lists them.`);
  const { running } = await keep(context, () => ({ voice: found.id }), () => `Voice ${found.name} (${found.id}).`);
  context.output.result({ voice: found.id, name: found.name, running });
  return undefined;
}
