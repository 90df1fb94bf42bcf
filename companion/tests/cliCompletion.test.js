// What the shells themselves offer, by the completions that are installed for them.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';
import { fileURLToPath } from 'node:url';

import { agents } from '../lib/agents.js';
import { temporaryHome } from './home.js';

const completions = fileURLToPath(new URL('../../data/completions', import.meta.url));
const limit = 60_000;

/** An interactive zsh, which notes each word that is offered and tells on its terminal when a look is over. */
const zshInside = `
PS1= RPROMPT= PROMPT_EOL_MARK=
unsetopt zle_bracketed_paste beep 2> /dev/null
fpath=(${completions} $fpath)
autoload -Uz compinit
compinit -u -D
compadd() {
  # With one of these it only sorts out words for another call.
  if [[ -z \${(M)@[1,(i)(-|--)]:#-[a-zA-Z12]#[ODA]} ]]; then
    local -a offered
    builtin compadd -O offered "$@"
    (( $#offered )) && print -rl -- $offered >> $OFFERED
  fi
  builtin compadd "$@"
}
look() {
  _main_complete
  print -r -- 'look-is-over' > /dev/tty
}
zle -C look complete-word look
bindkey '^I' look
print -r -- "it-is-ready"
`;

/** Types the line into it, and a tab. */
const zshOutside = `
zmodload zsh/zpty
zpty shell zsh -f -i
zpty -w shell ". $1"
zpty -r shell said '*it-is-ready*'
zpty -n -w shell "$2"$'\\t'
zpty -r shell said '*look-is-over*'
zpty -d shell
`;

function offeredByZsh(home, line) {
  const file = (name) => path.join(home.home, name);
  fs.writeFileSync(file('offered'), '');
  fs.writeFileSync(file('inside.zsh'), `setopt extended_glob\n${zshInside}`);
  fs.writeFileSync(file('outside.zsh'), zshOutside);
  const environment = { ...home.environment, TERM: 'xterm', LANG: 'C.UTF-8', OFFERED: file('offered') };
  const { error, stderr } = spawnSync('zsh', ['-f', file('outside.zsh'), file('inside.zsh'), line],
    { env: environment, cwd: home.home, encoding: 'utf8', timeout: limit, killSignal: 'SIGKILL' });
  assert.deepEqual([error, stderr], [undefined, '']);
  return fs.readFileSync(file('offered'), 'utf8').split('\n');
}

function offeredByFish(home, line) {
  const program = `source ${completions}/tts.fish; complete -C "$argv[1]"`;
  const { error, status, stdout, stderr } = spawnSync('fish', ['--no-config', '-c', program, line],
    { env: home.environment, cwd: home.home, encoding: 'utf8', timeout: limit });
  assert.deepEqual([error, status, stderr], [undefined, 0, '']);
  return stdout.split('\n').map((offer) => offer.split('\t')[0]);
}

/** Each word once; an option's value as if it stood alone. */
const tidy = (words) => [...new Set(words.map((word) => word.replace(/^--[a-z]+=(?=.)/, '').replace(/=$/, '')))]
  .filter(Boolean).sort();

const looks = [
  ['tts pa', ['pair', 'pause']],
  ['tts --js', ['--json']],
  ['tts on --s', ['--session', '--source', '--start']],
  ['tts on --source c', ['claude-code', 'cline', 'codex']],
  ['tts on --source=co', ['codex']],
  ['tts on --source=', [...agents.keys()].sort()],
  ['tts on --session=x --h', ['--help', '--here']],
  ['tts on --session x --h', ['--help', '--here']],
  ['tts off --session=', []],
  ['tts --json captions o', ['off', 'on']],
  ['tts lexicon a', ['add']],
  ['tts voice bm_f', ['bm_fable']],
  ['tts diag --c', ['--cleanup']],
  ['tts diag --notes=', []],
  ['tts diag --out=bun', ['bundle.zip']],
  ['tts diag --out bun', ['bundle.zip']],
  ['tts pair --lan --no-w', ['--no-wait']],
  ['tts help le', ['lexicon']],
];

for (const [shell, offered] of [['zsh', offeredByZsh], ['fish', offeredByFish]]) {
  const isMissing = spawnSync(shell, ['--version']).error !== undefined;
  for (const [line, words] of looks) {
    test(`${shell} completes "${line}"`, { skip: isMissing && `${shell} isn't installed` }, (t) => {
      const home = temporaryHome(t);
      fs.writeFileSync(path.join(home.home, 'bundle.zip'), '');
      assert.deepEqual(tidy(offered(home, line)), words);
    });
  }
}
