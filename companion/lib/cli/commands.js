// Every command with what its help says. The manual page and the completions are held against this table by a test.
// What a command does is loaded only when it runs, so that the common ones start quickly.

/**
 * @typedef {{ name: string, short?: string, value?: string, mayBeEmpty?: boolean, help: string }} Option
 * @typedef {{ name: string, aliases?: string[], arguments?: string, min?: number, max?: number, summary: string,
 *   help?: string[], options?: Option[], fixed?: object, undoes?: boolean, needsNothing?: boolean,
 *   judge?: () => Promise<(parsed: { command: Command, options: object, positionals: string[] }) => void>,
 *   load: () => Promise<(context: import('./main.js').Context) => Promise<number | void>> }} Command
 * `judge` fails where the words make no sense, before anything is done; `needsNothing`: not even --start starts anything
 */

/** @type {Option[]} */
export const globalOptions = [
  { name: '--json', help: 'print the result as one JSON object' },
  { name: '--start', help: "start the service first if it isn't running" },
  { name: '--help', short: '-h', help: 'print help and exit' },
  { name: '--version', help: 'print the version and exit' },
];

const session = {
  name: '--session',
  value: 'ID',
  help: 'the session with this id, or the only one that begins with it',
};

const transport = (name, summary, more) => ({
  name,
  summary,
  load: async () => (await import('./transport.js')).transport,
  ...more,
});

const setting = (name, summary, more) => ({
  name,
  summary,
  judge: async () => (await import('./settings.js')).judge,
  load: async () => (await import('./settings.js'))[more.run ?? name],
  ...more,
});

/** @type {Command[]} */
export const commands = [
  {
    name: 'on',
    summary: "attach a session: its agent's replies are spoken from now on",
    help: ['Without options: the session that was written to last, if that was within the last 15 minutes.'],
    options: [
      { name: '--source', value: 'NAME', help: 'only sessions of this agent: claude-code, codex, gemini, aider, cline, '
        + 'opencode or pi' },
      session,
      { name: '--here', help: 'the newest session of this folder or one above it' },
    ],
    judge: async () => (await import('./on.js')).judge,
    load: async () => (await import('./on.js')).on,
  },
  {
    name: 'off',
    summary: 'detach a session',
    help: [
      'Without options: the session that is attached.',
      'What is in the queue is still spoken; "tts stop" ends that.',
    ],
    options: [session, { name: '--all', help: 'every session' }],
    judge: async () => (await import('./off.js')).judge,
    load: async () => (await import('./off.js')).off,
  },
  {
    name: 'status',
    summary: 'what runs, what is attached, and the settings',
    help: ["Exits with 69 when the service doesn't run or answer; the report is printed all the same."],
    options: [{ name: '--all', help: 'list old sessions too' }],
    load: async () => (await import('./status.js')).status,
  },
  transport('pause', 'hold the voice'),
  transport('resume', 'let it go on from the same place', { aliases: ['play'] }),
  transport('toggle', 'pause or resume'),
  transport('skip', 'go on to the next piece of the reply'),
  transport('back', 'go back: to the start of this message, or to the message before', { aliases: ['previous'] }),
  transport('next', 'go forward by a message'),
  transport('restart', 'speak this piece again from its start', { aliases: ['repeat'] }),
  transport('stop', 'be silent, and drop what is in the queue'),
  setting('mute', 'be silent; replies that come while muted are never spoken', {
    fixed: { muted: true },
    run: 'muting',
  }),
  setting('unmute', 'speak again', { fixed: { muted: false }, run: 'muting' }),
  setting('volume', 'show or set the volume', {
    arguments: 'N',
    max: 1,
    help: ['N is 0 to 100, or a change such as +10 or -10.'],
  }),
  setting('speed', 'show or set the speed of speech', {
    arguments: 'X',
    max: 1,
    help: ['X is 0.5 to 3; 1 is normal.'],
  }),
  setting('voice', 'list the voices, or choose one', {
    arguments: 'ID',
    max: 1,
    help: ['ID is an id such as af_heart, or a name such as Heart.'],
  }),
  setting('captions', 'show or hide the captions', { arguments: 'on|off', max: 1 }),
  {
    name: 'lexicon',
    arguments: 'list | add WORD SAY | remove WORD',
    min: 1,
    max: 3,
    summary: 'how words are to be spoken',
    help: ['Captions keep the word as it is written. An empty SAY leaves the word out.'],
    judge: async () => (await import('./lexiconCommand.js')).judge,
    load: async () => (await import('./lexiconCommand.js')).lexicon,
  },
  {
    name: 'pair',
    summary: 'show a code with which a phone becomes a remote control',
    options: [
      { name: '--lan', help: 'let devices of the local network reach the bridge, from now on' },
      { name: '--no-lan', help: 'let only this computer reach it, from now on' },
      { name: '--wait', help: 'wait until a device has paired (as on a terminal)' },
      { name: '--no-wait', help: 'print the code and return' },
    ],
    undoes: true,
    judge: async () => (await import('./pair.js')).judge,
    load: async () => (await import('./pair.js')).pair,
  },
  transport('search', 'open the search for sessions'),
  {
    name: 'open',
    arguments: 'ADDRESS ...',
    min: 1,
    max: 20,
    summary: 'attach the sessions with these addresses, such as tts://session/ID',
    help: ['If one of them stands for nothing, none is opened.'],
    judge: async () => (await import('./addresses.js')).judgeAddresses,
    load: async () => (await import('./transport.js')).open,
  },
  {
    name: 'start',
    summary: 'start the service and the daemon',
    load: async () => (await import('./life.js')).start,
  },
  {
    name: 'quit',
    summary: 'end the service and the daemon',
    load: async () => (await import('./life.js')).quit,
  },
  {
    name: 'install',
    summary: 'start at login',
    load: async () => (await import('./life.js')).install,
  },
  {
    name: 'uninstall',
    summary: "don't start at login any more",
    load: async () => (await import('./life.js')).uninstall,
  },
  {
    name: 'diag',
    summary: 'write a redacted bundle of logs and facts for support',
    help: ['Spoken text, secrets and addresses of mail are taken out. The bundle is a zip file on the desktop.'],
    options: [
      { name: '--out', value: 'PATH', help: 'where to write it' },
      { name: '--notes', value: 'TEXT', mayBeEmpty: true, help: 'what you were doing when it happened' },
      { name: '--send', help: 'send it to support' },
      { name: '--cleanup', help: 'remove the file once it has been sent' },
    ],
    load: async () => (await import('./diagCommand.js')).diag,
  },
  {
    name: 'help',
    arguments: 'COMMAND',
    max: 1,
    summary: 'print help and exit',
    needsNothing: true,
    judge: async () => (await import('./help.js')).judge,
    load: async () => (await import('./help.js')).help,
  },
];
