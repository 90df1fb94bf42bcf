// Commands that the service carries out at once: each is one line to its socket.

import { socketPath } from '../places.js';
import { sendCommand } from '../serviceSocket.js';

/** The socket's word for a command, where it has another name, and what a person is told. */
const table = {
  pause: { said: 'Paused.' },
  resume: { said: 'Going on.' },
  toggle: { said: 'Paused, or going on.' },
  skip: { said: 'Skipped.' },
  back: { word: 'previous', said: 'Went back.' },
  next: { said: 'Went forward.' },
  restart: { said: 'Once more.' },
  stop: { said: 'Stopped.' },
  search: { said: 'Opened the search.' },
};

export async function transport({ command, environment, output }) {
  const { word = command.name, said } = table[command.name];
  await sendCommand(word, {}, { path: socketPath(environment) });
  output.say(said);
  output.result({ sent: word });
}

/** "tts open ADDRESS…" */
export async function open({ positionals, environment, output }) {
  await sendCommand('open', { urls: positionals }, { path: socketPath(environment) });
  output.say('Handed to the service.');
  output.result({ sent: 'open', urls: positionals });
}
