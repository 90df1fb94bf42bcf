// Takes out of a text or a record what must not leave this computer: secrets, addresses of mail, the home's name, and
// what was spoken. It goes by three things: what a value is called, what is known to be secret here (tokens, the code,
// keys in the environment, words of the sessions), and what looks like a secret.

import os from 'node:os';

import { homeDirectory, nowPlayingPath, pairCodePath, profilePath, statePath, tokensPath } from '../places.js';
import { redactFields } from '../redaction.js';
import { SharedDocument } from '../sharedDocument.js';

const removed = '[redacted]';
const spoken = '[text]';

const secretVariable = /KEY|TOKEN|SECRET|PASSW|CREDENTIAL|AUTH/i;

/** Keys under which a secret stands, whatever it looks like; a plain number or switch is none. */
const secretKey = /api[_-]?key|passw|passphrase|secret|authorization|cookie|credential|private[_-]?key|bearer|(?:^|[_-])auth$/i;
const tokenKey = /(?:^|[a-z_-])tokens?$/i;

/** Keys under which words of a person or of an agent stand, whatever they look like. */
const textKeys = new Set(['head40', 'lastText', 'match', 'notes', 'prompt', 'query', 'sample', 'say', 'snippet',
  'spoken', 'text', 'title', 'transcription', 'utterance', 'value', 'branch', 'label']);

/** Keys under which a sentence is the program's own, or a path may hold blanks. */
const sentenceKeys = new Set(['msg', 'message', 'error', 'reason', 'detail', 'why', 'backend', 'domain', 'path',
  'cwd', 'transcript', 'source', 'socketPath', 'pointer', 'resolvedTo', 'file', 'script', 'copy', 'hint',
  'server', 'lastSpeakError']);

const uuid = /[0-9a-f]{8}(?:-[0-9a-f]{4}){3}-[0-9a-f]{12}/i;

/**
 * Patterns of secrets that nobody told us of, with what is left of them and, where there is something, what stands in
 * all that a pattern fits: it is looked for first. Each repetition in front of what a pattern looks for is bounded, so
 * that a long line without it costs no more than its length.
 */
const patterns = [
  [/"[^"\s@]{1,200}(?: [^"\s@]{1,200}){0,4}"@([\p{L}\p{N}.-]{1,255})/gu, '***@$1', '@'],
  [
    /(?<![^\s@"<>()[\],;:=/\\])[^\s@"<>()[\],;:=/\\]+@([\p{L}\p{N}](?:[\p{L}\p{M}\p{N}.-]{0,253}[\p{L}\p{M}\p{N}])?)/gu,
    '***@$1', '@',
  ],
  [/\b(?:AKIA|ASIA|AROA|AIDA|ABIA|ACCA)[A-Z0-9]{16}\b/g, removed],
  [/\beyJ[A-Za-z0-9_-]{4,}(?:\.[A-Za-z0-9_-]*){1,4}/g, removed, 'eyJ'],
  [/\b(Bearer|Basic|Token)\s{1,4}[A-Za-z0-9._~+/=-]{6,}/gi, `$1 ${removed}`],
  [/:\/\/[^\s/@:]{1,128}:[^\s/@]{1,256}@/g, `://${removed}@`, '://'],
  [/([?&;](?:key|token|code|secret|password|auth|sig)[a-z_]{0,16}=)[^\s&"']+/gi, `$1${removed}`],
  [/((?:api[_-]?key|token|secret|password|passwd)["']?\s{0,4}[:=]\s{0,4}["']?)[^\s"',&}]+/gi, `$1${removed}`],
  [/\bya29\.[A-Za-z0-9_-]{10,}/g, removed, 'ya29.'],
  // Shorter, or with a "_", it is a variable of npm's.
  [/\b(?:npm|hf)_[A-Za-z0-9]{16,}/g, removed],
  [/\b(?:sk|pk|rk|ghp|gho|ghs|ghu|ghr|github_pat|glpat|xox[a-z])[-_][A-Za-z0-9_-]{10,}/g, removed],
  // The parser quotes what it couldn't read.
  [/"(?:[^"\\]|\\.){0,400}"(\.{3})? is not valid JSON/g, `"${spoken}" is not valid JSON`, 'is not valid JSON'],
  [/(\bcode\W{1,3})\d{6}\b/gi, `$1${removed}`],
];

/** What a message quotes of three words and more, in whichever quotation marks; an apostrophe in a word is none. */
const quotations = [
  [/(["`])[^"`\s]{1,200}(?:\s{1,4}[^"`\s]{1,200}){2,2000}\s{0,4}\1/g, `$1${spoken}$1`],
  [/[“«][^“”«»]{1,2000}[”»]/g, spoken],
  [
    /(?<=^|[\s(:=[])'[^'\s]{1,200}(?:(?:\s{1,4}|(?<=\w)'(?=\w))[^'\s]{1,200}){2,2000}'(?=$|[\s.,;:)\]])/g,
    `'${spoken}'`,
  ],
];

/** A run that is long and mixed enough to be a key: all of a token's alphabet, or hexadecimal. */
function looksSecret(run) {
  if (uuid.test(run)) return false;
  if (/^[0-9a-f]{32,}$/i.test(run)) return true;
  return /[a-z]/.test(run) && /[A-Z]/.test(run) && /[0-9]/.test(run);
}

const stringsIn = (value) => {
  if (typeof value === 'string') return [value];
  return value !== null && typeof value === 'object' ? Object.values(value).flatMap(stringsIn) : [];
};

function secretsOf(environment) {
  const variables = Object.entries(environment).filter(([name]) => secretVariable.test(name)).map(([, value]) => value);
  const tokens = SharedDocument.read(tokensPath(environment)).list('tokens').map((row) => row?.token);
  const code = SharedDocument.read(pairCodePath(environment)).get('code');
  return [...variables, ...tokens, code].filter((value) => typeof value === 'string' && value.length >= 6);
}

/** Words that the documents hold: a log line that quotes one of them would tell it. */
function textsOf(environment) {
  const state = SharedDocument.read(statePath(environment));
  const rows = [...state.list('sessions'), ...state.list('discoveredSessions')];
  const texts = rows.flatMap((row) => [row?.title, row?.lastText]);
  const lexicon = stringsIn(SharedDocument.read(profilePath(environment)).list('lexicon'));
  const snippet = SharedDocument.read(nowPlayingPath(environment)).get('snippet');
  return [...texts, ...lexicon, snippet].filter((text) => typeof text === 'string' && text.trim().length >= 8);
}

/** What is shorter can hold none: not even an address of mail. */
const shortestSecret = 3;
/** The words of programs come again in very many lines; what is longer seldom does. */
const longestRemembered = 64;
const mostRemembered = 10_000;

/** What `make` makes of a short text, made once. */
function remembered(memory, text, make) {
  if (text.length > longestRemembered) return make(text);
  let made = memory.get(text);
  if (made === undefined) {
    made = make(text);
    if (memory.size < mostRemembered) memory.set(text, made);
  }
  return made;
}

const byLength = (a, b) => b.length - a.length;

const literal = (value) => value.replace(/[\\^$.*+?()[\]{}|/]/g, '\\$&');

/** One expression for all of them: a log holds a million words, and each is looked at once. */
function anyOf(values) {
  return values.length ? new RegExp(values.map(literal).join('|'), 'g') : undefined;
}

/** The home as a path, and as Claude Code names the folder of a project in it; not as the beginning of another name. */
function homePatterns(home) {
  if (home.length < 2) return [];
  const encoded = home.replace(/[^A-Za-z0-9]/g, '-');
  return [
    [new RegExp(`${literal(home)}(?![\\p{L}\\p{N}_])`, 'gu'), '~'],
    [new RegExp(`(?<![A-Za-z0-9-])${encoded}(?![A-Za-z0-9])`, 'g'), '~'],
  ];
}

export class Scrubber {
  #known;
  #instead;
  #homes;
  #host;
  #texts = new Map();
  #sentences = new Map();

  /** Reads what is secret here once; a bundle is made in a moment. */
  constructor({ environment = process.env } = {}) {
    const secrets = secretsOf(environment).map((value) => [value, removed]);
    const texts = textsOf(environment).map((value) => [value, spoken]);
    // The longest first, so that no part of one is left when a shorter one lies in it.
    this.#instead = new Map([...texts, ...secrets]);
    this.#known = anyOf([...this.#instead.keys()].sort(byLength));
    this.#homes = homePatterns(homeDirectory(environment));
    this.#host = os.hostname();
  }

  /** A text without what is secret, known or by its look. */
  text(text) {
    return text.length < shortestSecret ? text : remembered(this.#texts, text, (it) => this.#cleanText(it));
  }

  #cleanText(text) {
    let clean = this.#known ? text.replace(this.#known, (value) => this.#instead.get(value)) : text;
    for (const [pattern, instead, sign] of patterns) {
      if (sign === undefined || clean.includes(sign)) clean = clean.replace(pattern, instead);
    }
    clean = clean.replace(/[A-Za-z0-9_-]{32,}/g, (run) => (looksSecret(run) ? removed : run));
    return this.#homes.reduce((rest, [pattern, instead]) => rest.replace(pattern, instead), clean);
  }

  /** A message of a program's, which may quote what it was about. */
  sentence(text) {
    return remembered(this.#sentences, text,
      (it) => this.text(quotations.reduce((clean, [pattern, instead]) => clean.replace(pattern, instead), it)));
  }

  /** A value whose strings are facts; only what is secret in them goes. */
  facts(value) {
    if (typeof value === 'string') return this.text(value);
    if (Array.isArray(value)) return value.map((element) => this.facts(element));
    if (value === null || typeof value !== 'object') return value;
    return Object.fromEntries(Object.entries(value).map(([key, inner]) => [key, this.facts(inner)]));
  }

  /** A line's record, redacted as the loggers redact and then by what is left in it. */
  record(fields) {
    return this.#fields(redactFields(fields));
  }

  #fields(fields) {
    const clean = {};
    for (const key of Object.keys(fields)) clean[this.text(key)] = this.value(key, fields[key]);
    return clean;
  }

  /** Numbers, booleans and null tell nothing; strings stay where they are names, paths or the program's own words. */
  value(key, value) {
    if (isSecretKey(key, value)) return removed;
    if (Array.isArray(value)) return value.map((element) => this.value(key, element));
    if (value !== null && typeof value === 'object') return this.#fields(value);
    if (typeof value !== 'string') return value;
    if (key === 'host' || value === this.#host) return '[host]';
    if (textKeys.has(key)) return spoken;
    if (sentenceKeys.has(key) || isName(value)) return this.sentence(value);
    return spoken;
  }
}

function isSecretKey(key, value) {
  if (value === null || typeof value === 'boolean') return false;
  return secretKey.test(key) || (typeof value !== 'number' && tokenKey.test(key));
}

/** A word, a path or a number in ASCII: no prose. */
function isName(value) {
  return value.length <= 300 && /^[\x21-\x7e]*$/.test(value);
}
