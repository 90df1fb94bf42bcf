import assert from 'node:assert/strict';
import test from 'node:test';
import { setImmediate } from 'node:timers/promises';

import { AnswerLimit, silenceInterval } from '../lib/answerLimit.js';

/** Questions that are answered when the test says so. */
function stage(t, limit = 20) {
  const stage = { time: 0, asked: [], answers: new Map() };
  const answers = new AnswerLimit({ now: () => stage.time, limit });
  t.after(() => answers.close());
  stage.limit = answers;
  stage.ask = (place, isAnswered = false) => answers.ask(place, () => {
    stage.asked.push(place);
    return isAnswered ? Promise.resolve('told') : new Promise((resolve) => { stage.answers.set(place, resolve); });
  }, 'nothing');
  return stage;
}

test('what answers in time is heard, and a failure is the asker\'s', async (t) => {
  const { ask, limit } = stage(t);
  assert.equal(await ask('a', true), 'told');
  await assert.rejects(limit.ask('a', () => Promise.reject(new Error('no')), ''), { message: 'no' });
  assert.equal(limit.isSilent('a'), false);
});

test('what gave no answer is left alone for a while, and for as long as the question stands', async (t) => {
  const home = stage(t);
  const { ask, asked, limit } = home;
  assert.equal(await ask('a'), 'nothing');
  home.time = silenceInterval;
  assert.equal(await ask('a', true), 'nothing');
  home.answers.get('a')('late');
  await setImmediate();
  home.time = silenceInterval - 1;
  assert.equal(await ask('a', true), 'nothing');
  home.time = silenceInterval;
  assert.equal(limit.isSilent('a'), false);
  assert.equal(await ask('a', true), 'told');
  assert.deepEqual(asked, ['a', 'a']);
});

test('of the threads that ask one remains for each process, and one for what has answered before', async (t) => {
  const { ask, asked, answers } = stage(t);
  await ask('known', true);
  await ask('known too', true);
  assert.deepEqual([await ask('a'), await ask('b'), await ask('c', true)], ['nothing', 'nothing', 'nothing']);
  assert.equal(await ask('known'), 'nothing');
  assert.equal(await ask('known too', true), 'nothing');
  assert.deepEqual(asked, ['known', 'known too', 'a', 'b', 'known']);
  for (const place of ['a', 'known']) answers.get(place)('late');
  await setImmediate();
  assert.equal(await ask('c', true), 'told');
});

test('closed it waits for nothing and asks nothing', async (t) => {
  const { ask, asked, limit } = stage(t, 1_000_000);
  const waiting = ask('a');
  limit.close();
  assert.equal(await waiting, 'nothing');
  assert.equal(await ask('b', true), 'nothing');
  assert.deepEqual(asked, ['a']);
});
