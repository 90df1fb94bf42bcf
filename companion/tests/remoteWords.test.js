import assert from 'node:assert/strict';
import test from 'node:test';

import { contrast, coloursOf, grounds, readable, themeOf } from '../remote/colours.js';
import { EventParser } from '../remote/events.js';
import {
  activeWord,
  backLabel,
  deviceLabel,
  elapsedAt,
  historyOf,
  newLabel,
  scrollOffset,
  sessionLabel,
  statusOf,
  timeLabel,
  wordsOf,
} from '../remote/words.js';

test('words are the runs between white space', () => {
  assert.deepEqual(wordsOf('  the quick\u00a0brown\n fox, jumps '), ['the', 'quick', 'brown', 'fox,', 'jumps']);
  assert.deepEqual(wordsOf(' \n'), []);
});

for (const [progress, count, expected] of [
  [0, 5, -1],
  [0.2, 5, 0],
  [0.5, 5, 2],
  [0.99, 5, 4],
  [1, 5, 4],
  [7, 5, 4],
  [-1, 5, -1],
  [0.5, 0, -1],
  [1 / 6, 5, 0],
  [0.16, 5, -1],
]) {
  test(`at ${progress} of ${count} words word ${expected} is spoken`, () =>
    assert.equal(activeWord(progress, count), expected));
}

for (const [top, visible, content, expected] of [
  [50, 100, 80, 0],
  [0, 100, 400, 0],
  [200, 100, 400, 155],
  [390, 100, 400, 300],
  [10, 0, 400, 0],
]) {
  test(`a line at ${top} in ${visible} of ${content} scrolls to ${expected}`, () => {
    assert.equal(scrollOffset(top, visible, content), expected);
  });
}

const picture = (state, more = {}) => ({
  service: true,
  age: 0,
  receivedAt: 1000,
  settings: { paused: false },
  ...more,
  nowPlaying: { state, elapsed: 4, duration: 11, synthesizing: false, ...more.nowPlaying },
});

test('time goes on by itself while something plays, to its end', () => {
  assert.equal(elapsedAt(picture('playing'), 3000), 6);
  assert.equal(elapsedAt(picture('playing', { age: 500 }), 3000), 6.5);
  assert.equal(elapsedAt(picture('playing'), 60_000), 11);
  assert.equal(elapsedAt(picture('paused'), 3000), 4);
  assert.equal(elapsedAt(picture('playing', { service: false }), 3000), 4);
  assert.equal(elapsedAt(picture('playing', { settings: { paused: true } }), 3000), 4);
});

test('what is going on', () => {
  const kind = (...args) => statusOf(picture(...args)).kind;
  assert.equal(statusOf(undefined).kind, 'connecting');
  assert.equal(kind('playing', { service: false }), 'stopped');
  assert.equal(kind('playing'), 'playing');
  assert.equal(kind('paused'), 'paused');
  assert.equal(kind('idle', { settings: { paused: true } }), 'paused');
  assert.equal(kind('idle', { nowPlaying: { synthesizing: true } }), 'synthesizing');
  assert.equal(kind('idle'), 'idle');
  assert.equal(statusOf(picture('idle')).placeholder, 'Waiting for narration…');
});

test('the history reaches to the oldest message known', () => {
  const cursor = (kind, messageIndex, totalKnown) => ({ kind, messageIndex, totalKnown });
  assert.deepEqual(historyOf({ cursor: cursor('live', 0, 12), totalMessages: 12 }), { back: 0, furthest: 11 });
  assert.deepEqual(historyOf({ cursor: cursor('history', 3, 12), totalMessages: 12 }), { back: 3, furthest: 11 });
  assert.deepEqual(historyOf({ cursor: cursor('history', 20, 12), totalMessages: 12 }), { back: 20, furthest: 20 });
  assert.deepEqual(historyOf({ cursor: cursor('idle', 0, 0), totalMessages: 0 }), { back: 0, furthest: 0 });
});

test('labels', () => {
  assert.deepEqual([0, 1, 3].map(backLabel), ['Live', '1 message back', '3 messages back']);
  assert.deepEqual([-1, 0, 2].map(newLabel), ['', '', '+2 new']);
  assert.deepEqual([-1, 0, 65.9, 3600].map(timeLabel), ['0:00', '0:00', '1:05', '60:00']);
  assert.equal(sessionLabel({ project: 'sonra', branch: 'main', title: 'x' }), 'sonra · main');
  assert.equal(sessionLabel({ project: '', branch: '', title: 'Fix it' }), 'Fix it');
  assert.equal(deviceLabel('Mozilla/5.0 (iPhone; CPU iPhone OS 17_0 like Mac OS X)'), 'iPhone');
  assert.equal(deviceLabel('Mozilla/5.0 (Linux; Android 14; Pixel 8) Chrome/120 Mobile'), 'Android phone');
  assert.equal(deviceLabel('curl'), 'Phone');
});

test('events come in pieces', () => {
  const parser = new EventParser();
  assert.deepEqual(parser.take('data: {"a'), []);
  assert.deepEqual(parser.take('":1}\n'), []);
  assert.deepEqual(parser.take('\n: here\n\nevent: replaced\nda'), [{ name: 'message', data: '{"a":1}' }]);
  assert.deepEqual(parser.take('ta: {}\r\n\r\n'), [{ name: 'replaced', data: '{}' }]);
  assert.deepEqual(parser.take('data: one\ndata:two\n\n'), [{ name: 'message', data: 'one\ntwo' }]);
});

test('every agent has colours that can be read', () => {
  assert.equal(themeOf('unknown'), themeOf('claude-code'));
  assert.equal(themeOf('constructor'), themeOf('claude-code'));
  const numbers = (css) => css.match(/\d+/g).map(Number);
  for (const source of ['claude-code', 'codex', 'gemini', 'aider', 'cline', 'opencode', 'pi']) {
    const { start, end, ink } = themeOf(source);
    assert.ok(contrast(ink, start) >= 4.5 && contrast(ink, end) >= 4.5, `${source}: ink`);
    for (const scheme of ['dark', 'light']) {
      const colours = coloursOf(source, scheme);
      for (const name of ['--word-start', '--word-end']) {
        assert.ok(contrast(numbers(colours[name]), grounds[scheme]) >= 4.5, `${source} ${scheme} ${name}`);
      }
    }
  }
});

test('contrast as it is laid down', () => {
  assert.equal(contrast([0, 0, 0], [255, 255, 255]), 21);
  assert.equal(contrast([119, 119, 119], [255, 255, 255]).toFixed(2), '4.48');
  assert.deepEqual(readable([0, 0, 0], [255, 255, 255]), [0, 0, 0]);
});
