import assert from 'node:assert/strict';
import test from 'node:test';
import { setImmediate } from 'node:timers/promises';

import { AnswerLimit, silenceInterval, Threads } from '../lib/answerLimit.js';

/** Questions that are answered when the test says so. */
function stage(t, limit = 20) {
  const stage = { time: 0, asked: [], answers: new Map() };
  const threads = new Threads();
  const answers = new AnswerLimit({ now: () => stage.time, limit, threads });
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
  await setImmediate();
  limit.close();
  assert.equal(await waiting, 'nothing');
  assert.equal(await ask('b', true), 'nothing');
  assert.deepEqual(asked, ['a']);
});

test('one question is asked at a time, whoever asks', async (t) => {
  const { answers, ask, asked } = stage(t, 1_000_000);
  const first = ask('a');
  const second = ask('b', true);
  await setImmediate();
  assert.deepEqual(asked, ['a']);
  answers.get('a')('told');
  assert.deepEqual([await first, await second, asked], ['told', 'told', ['a', 'b']]);
});

test('those who ask share the threads, and each has an own opinion of what is silent', async (t) => {
  const threads = new Threads();
  const [one, other] = [0, 1].map(() => new AnswerLimit({ now: () => 0, limit: 20, threads }));
  t.after(() => { one.close(); other.close(); });
  const ends = [];
  for (const place of ['a', 'b']) {
    assert.equal(await one.ask(place, () => new Promise((resolve) => { ends.push(resolve); }), 'nothing'), 'nothing');
  }
  const told = () => other.ask('c', async () => 'told', 'nothing');
  assert.equal(await told(), 'nothing');
  assert.equal(other.isSilent('a'), false);
  ends[0]();
  await setImmediate();
  assert.equal(await told(), 'told');
});

test('what is demanded and not answered is a failure that passes', async (t) => {
  const { limit } = stage(t);
  assert.equal(await limit.demand('a', async () => 'told'), 'told');
  await assert.rejects(limit.demand('a', () => new Promise(() => {})), { code: 'ETIMEDOUT' });
});

test('without patience a place is asked again as soon as the old question was answered', async (t) => {
  const limit = new AnswerLimit({ now: () => 0, limit: 20, silence: 0, threads: new Threads() });
  t.after(() => limit.close());
  let end;
  await limit.ask('a', () => new Promise((resolve) => { end = resolve; }), 'nothing');
  assert.equal(limit.isSilent('a'), true);
  end();
  await setImmediate();
  assert.equal(limit.isSilent('a'), false);
});

test('of a mount that gives no answer one question stands, and nothing else of it is asked, even by others', async (t) => {
  const threads = new Threads((place) => (place.startsWith('/far/') ? '/far' : undefined));
  const [one, other] = [0, 1].map(() => new AnswerLimit({ now: () => 0, limit: 20, silence: 0, threads }));
  t.after(() => { one.close(); other.close(); });
  let end;
  await one.ask('/far/a', () => new Promise((resolve) => { end = resolve; }), 'nothing');
  const told = (place) => other.ask(place, async () => 'told', 'nothing');
  assert.deepEqual([await told('/far/b'), await told('/near'), other.isSilent('/far/c')], ['nothing', 'told', true]);
  end();
  await setImmediate();
  assert.equal(await told('/far/b'), 'told');
});
