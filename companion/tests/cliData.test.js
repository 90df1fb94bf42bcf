// The manual page and the completions know what the help knows.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { agents } from '../lib/agents.js';
import { commands, globalOptions } from '../lib/cli/commands.js';
import { generalHelp } from '../lib/cli/help.js';
import { exitCodes } from '../lib/words/failure.js';
import { voices } from '../lib/voices.js';
import { temporaryHome } from './home.js';

const data = (name) => fileURLToPath(new URL(`../../data/${name}`, import.meta.url));
const read = (name) => fs.readFileSync(data(name), 'utf8');

const sorted = (words) => [...new Set(words)].sort();
const names = commands.map(({ name }) => name);
const optionNames = (options = []) => sorted(options.map(({ name }) => name));

/** The lines of the page's section. */
function section(page, title) {
  const [, text] = new RegExp(`^\\.Sh ${title}\\n([\\s\\S]*?)(?=^\\.Sh |$(?![\\s\\S]))`, 'm').exec(page);
  return text.split('\n');
}

const flagsOf = (text) => [...text.matchAll(/\bFl ((?:\\-|[a-z])+)/g)].map(([, flag]) => `-${flag.replaceAll('\\-', '-')}`);

/** From the page: each command with the options that its paragraphs name as items or in its form. */
function manualCommands(page) {
  const found = new Map();
  let name;
  for (const line of section(page, 'COMMANDS')) {
    name = /^\.It Cm (\w+)/.exec(line)?.[1] ?? name;
    if (!name) continue;
    if (!found.has(name)) found.set(name, []);
    if (line.startsWith('.It ')) found.get(name).push(...flagsOf(line));
  }
  return found;
}

test('the manual page has the commands of the help, in its order, with their options', () => {
  const manual = manualCommands(read('man/tts.1'));
  assert.deepEqual([...manual.keys()], names);
  for (const { name, options } of commands) assert.deepEqual(sorted(manual.get(name)), optionNames(options), name);
});

test('the manual page names every alias, global option and exit code', () => {
  const page = read('man/tts.1');
  const described = section(page, 'COMMANDS').join('\n');
  for (const { aliases = [] } of commands) {
    for (const alias of aliases) assert.match(described, new RegExp(`^Also\\n\\.Cm ${alias} \\.$`, 'm'), alias);
  }
  const global = section(page, 'OPTIONS').filter((line) => line.startsWith('.It ')).flatMap(flagsOf);
  assert.deepEqual(sorted(global), sorted(globalOptions.flatMap(({ name, short }) => (short ? [name, short] : [name]))));
  const codes = section(page, 'EXIT STATUS').flatMap((line) => /^\.It (\d+)$/.exec(line)?.[1] ?? []);
  assert.deepEqual(codes.map(Number), Object.values(exitCodes));
});

test('the manual page is without fault for those who print it', () => {
  const man = spawnSync('man', ['--warnings', '-E', 'UTF-8', '-l', data('man/tts.1')], { encoding: 'utf8' });
  assert.deepEqual([man.status, man.stderr], [0, '']);
  assert.match(man.stdout, /tts lexicon add nginx "engine x"/);
  const lint = spawnSync('mandoc', ['-Tlint', data('man/tts.1')], { encoding: 'utf8' });
  assert.deepEqual([lint.error, lint.stdout, lint.stderr], [undefined, '', '']);
});

const scripts = ['tts.bash', '_tts', 'tts.fish'];

for (const script of scripts) {
  test(`${script} knows every command, option, voice and agent`, () => {
    const text = read(`completions/${script}`);
    const isThere = (word) => new RegExp(`(?<![\\w-])${word}(?![\\w-])`).test(text);
    for (const word of [...names, ...voices.map(({ id }) => id), ...agents.keys()]) assert.ok(isThere(word), word);
    for (const { name } of [...globalOptions, ...commands.flatMap(({ options = [] }) => options)]) {
      assert.ok(isThere(script === 'tts.fish' ? `-l ${name.slice(2)}` : name), name);
    }
  });
}

test('the shells read the completions', (t) => {
  const checks = [['bash', '-n', 'tts.bash'], ['zsh', '-n', '_tts'], ['fish', '--no-execute', 'tts.fish']];
  for (const [shell, option, script] of checks) {
    const { error, status, stderr } = spawnSync(shell, [option, data(`completions/${script}`)], { encoding: 'utf8' });
    if (error?.code === 'ENOENT' && shell !== 'bash') t.diagnostic(`${shell} isn't installed`);
    else assert.deepEqual([status, stderr], [0, ''], shell);
  }
});

/** What bash offers behind `words`, the last of which is being written. */
function offered(words) {
  const quoted = words.map((word) => `'${word}'`).join(' ');
  const program = `. '${data('completions/tts.bash')}'; COMP_WORDS=(${quoted}); COMP_CWORD=$((\${#COMP_WORDS[@]} - 1));
    _tts; printf '%s\\n' "\${COMPREPLY[@]}"`;
  const { stdout, stderr } = spawnSync('bash', ['--norc', '-c', program], { encoding: 'utf8' });
  assert.equal(stderr, '');
  return stdout.split('\n').filter(Boolean);
}

const completed = [
  [['pa'], ['pause', 'pair'].sort()],
  [['--js'], ['--json']],
  [['on', '--s'], ['--session', '--source', '--start']],
  [['on', '--source', 'c'], ['claude-code', 'cline', 'codex']],
  [['on', '--source', '=', 'co'], ['codex']],
  [['on', '--source', '='], sorted(agents.keys())],
  [['--json', 'captions', 'o'], ['off', 'on']],
  [['lexicon', 'a'], ['add']],
  [['lexicon', 'add', 'l'], []],
  [['voice', 'bm_f'], ['bm_fable']],
  [['on', '--session', ''], []],
  [['diag', '--c'], ['--cleanup']],
  [['--session', 'voice', 'on', '--h'], ['--help', '--here']],
  [['--session', '=', 'voice', 'off', '--a'], ['--all']],
  [['lexicon', '--notes', 'x', 'r'], ['remove']],
];
for (const [words, choices] of completed) {
  test(`bash completes "tts ${words.join(' ')}"`, () => assert.deepEqual(sorted(offered(['tts', ...words])), choices));
}

test('bash offers what each command takes', () => {
  assert.deepEqual(sorted(offered(['tts', ''])), sorted([...names, ...globalOptions.map(({ name }) => name)]));
  for (const { name, options } of commands) {
    const given = offered(['tts', name, '--']);
    assert.deepEqual(sorted(given), sorted([...optionNames(options), ...globalOptions.map((option) => option.name)]), name);
  }
});

/** The lines of a completion that belong to `command`. */
const partOf = {
  _tts: (text, command) => new RegExp(`^        ${command}\\)([\\s\\S]*?);;`, 'm').exec(text)?.[1] ?? '',
  'tts.fish': (text, command) => text.replaceAll('\\\n', '').split('\n')
    .filter((line) => new RegExp(`seen_subcommand_from [a-z ]*\\b${command}\\b`).test(line)).join('\n'),
};
for (const [script, part] of Object.entries(partOf)) {
  test(`${script} offers each command its own options`, () => {
    const text = read(`completions/${script}`);
    const pattern = script === '_tts' ? /'(?:\([^)]*\))?(--[a-z-]+)=?\[/g : / -l ([a-z-]+)/g;
    for (const { name, options } of commands) {
      const given = [...part(text, name).matchAll(pattern)].map(([, option]) => `--${option.replace(/^--/, '')}`);
      assert.deepEqual(sorted(given), optionNames(options), name);
    }
  });
}

test('the manual page says of each variable that a user sets', () => {
  const variables = section(read('man/tts.1'), 'ENVIRONMENT').flatMap((line) => /^\.It Ev (\w+)$/.exec(line)?.[1] ?? []);
  for (const name of ['HOME', 'NO_COLOR', 'SONRA_PROGRAM', 'SONRA_SUPPORT_URL', 'TTS_DISABLE_CTL', 'XDG_CONFIG_HOME',
    'XDG_DESKTOP_DIR']) {
    assert.ok(variables.includes(name), name);
  }
  assert.deepEqual(variables, [...variables].sort());
});

test('the help puts what may be left out in brackets', () => {
  const help = generalHelp();
  for (const form of ['volume [N]', 'captions [on|off]', 'help [COMMAND]', 'open ADDRESS ...']) assert.ok(help.includes(`  ${form}  `), form);
});

test('bash completes files behind --out', (t) => {
  const { home } = temporaryHome(t);
  fs.writeFileSync(`${home}/bundle.zip`, '');
  assert.deepEqual(offered(['tts', 'diag', '--out', `${home}/bun`]), [`${home}/bundle.zip`]);
});
