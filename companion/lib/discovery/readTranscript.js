// What a transcript tells of its session, from its beginning and its end alone. An agent's format says what its
// records mean; a shape says how records are cut out of bytes.

import { leadingPieces, trailingPieces } from './jsonPieces.js';
import { headBytes, secondLookBytes, tailBytes } from './transcriptReader.js';

const lineFeed = 10;
/** Enough for the end of a document, and space behind it. */
const endBytes = 256;

function* objectsOf(lines) {
  for (const line of lines) {
    if (line === '') continue;
    try {
      const value = JSON.parse(line);
      if (value !== null && typeof value === 'object' && !Array.isArray(value)) yield value;
    } catch {
      // Cut, or not JSON at all: the others may still be of use.
    }
  }
}

/** JSON lines. A line that is cut off doesn't count. */
export const lines = {
  fromHead(bytes, isWhole) {
    const end = isWhole ? bytes.length : bytes.lastIndexOf(lineFeed) + 1;
    return objectsOf(bytes.toString('utf8', 0, end).split('\n'));
  },
  fromTail(bytes, isWhole) {
    const begin = isWhole ? 0 : bytes.indexOf(lineFeed) + 1;
    if (begin === 0 && !isWhole) return [];
    return objectsOf(bytes.toString('utf8', begin).split('\n').reverse());
  },
};

const isObject = (value) => value !== null && typeof value === 'object';

/** One JSON document: its own members are one record, each message is another. */
export const document = {
  fromHead(bytes) {
    const { members, elements } = leadingPieces(bytes.toString());
    return [members, ...elements.filter(isObject)];
  },
  fromTail(bytes) {
    const { members, elements } = trailingPieces(bytes.toString());
    return [members, ...elements.filter(isObject)];
  },
  isCut: async (file) => !/[\]}]\s*$/.test((await file.tail(endBytes)).toString('latin1')),
};

/** One record: the text, whole lines of it. */
export const plain = {
  fromHead: (bytes, isWhole) => [bytes.toString('utf8', 0, isWhole ? bytes.length : bytes.lastIndexOf(lineFeed) + 1)],
  fromTail: (bytes, isWhole) => [bytes.toString('utf8', isWhole ? 0 : bytes.indexOf(lineFeed) + 1)],
};

/**
 * @typedef {object} Facts what is known of a session
 * @property {string} [sessionId]
 * @property {string} [cwd]
 * @property {string} [ownTitle] what the agent calls the session
 * @property {string} [prompt] the first that the user typed
 * @property {string} [lastText]
 * @property {string} [branch]
 * @property {boolean} [isKept] they are those of the look before; the next one takes what it finds
 * @property {boolean} [isOther] a sub-agent's transcript, or no session at all
 */

/**
 * @typedef {object} Format
 * @property {(record: object, facts: Facts) => void} takeHead from the first record on
 * @property {(facts: Facts) => boolean} isHeadDone
 * @property {(record: object, found: Facts) => void} takeTail from the last record on
 * @property {(facts: Facts, isWhole: boolean) => void} [judge] when all is read
 */

/** What was found replaces what was known; what wasn't found doesn't. */
function note(facts, found) {
  for (const [name, value] of Object.entries(found)) if (value) facts[name] = value;
}

async function readHead(file, format, shape, facts) {
  for (const bytes of [headBytes, secondLookBytes]) {
    const found = {};
    const isWhole = file.size <= bytes;
    for (const record of shape.fromHead(await file.head(bytes), isWhole)) {
      format.takeHead(record, found);
      if (format.isHeadDone(found)) break;
    }
    note(facts, found);
    // The beginning of an appended file doesn't change: what is known isn't read again.
    facts.isHeadRead = format.isHeadDone(found) || file.size >= secondLookBytes;
    if (isWhole || format.isHeadDone(found)) return;
  }
}

async function readTail(file, format, shape, facts) {
  for (const bytes of [tailBytes, secondLookBytes]) {
    const found = {};
    for (const record of shape.fromTail(await file.tail(bytes), file.size <= bytes)) format.takeTail(record, found);
    note(facts, found);
    if (facts.lastText || file.size <= bytes) return;
  }
}

/**
 * Looks into a transcript. What its end no longer tells stays as `previous` had it, as long as the file only grew.
 * One that has become shorter, or has no end, is perhaps being written in place: all stays as it was for one look.
 * Throws what the file system says.
 * @param {import('./transcriptReader.js').TranscriptReader} reader
 * @param {string} path
 * @param {Facts | undefined} previous
 * @param {Format} format
 * @param {typeof lines} shape
 * @returns {Promise<Facts>}
 */
export function readTranscript(reader, path, previous, format, shape = lines) {
  return reader.read(path, async (file) => {
    const isSame = previous !== undefined && previous.ino === file.ino;
    if (isSame && !previous.isKept && (file.size < previous.size || await shape.isCut?.(file))) {
      return { ...previous, isKept: true };
    }
    const facts = isSame && previous.size <= file.size ? { ...previous } : {};
    delete facts.isKept;
    facts.ino = file.ino;
    facts.size = file.size;
    if (!facts.isHeadRead) await readHead(file, format, shape, facts);
    await readTail(file, format, shape, facts);
    format.judge?.(facts, file.size <= tailBytes);
    return facts;
  });
}
