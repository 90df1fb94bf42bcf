import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { Log, RotatingFile } from '../lib/log.js';
import { temporaryHome } from './home.js';

function recording() {
  const lines = [];
  return { lines, append: (line) => lines.push(JSON.parse(line)) };
}

test('a line has a level, a time and the fields of its logger', () => {
  const sink = recording();
  new Log(sink, { level: 'info' }).child({ class: 'Scan' }).info('scan done', { result: { rows: 3 } });
  const [{ time, host, ...line }] = sink.lines;
  assert.match(time, /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$/);
  assert.deepEqual(line,
    { class: 'Scan', result: { rows: 3 }, env: 'prod', level: 30, msg: 'scan done', service: 'sonra-daemon' });
});

test('secrets and texts are removed at every depth', () => {
  const sink = recording();
  new Log(sink).info('x', { a: [{ b: { bridgeToken: 's3cret', email: 'me@example.org' } }], text: 'a'.repeat(50), pairCode: ['1'] });
  assert.equal(JSON.stringify(sink.lines).includes('s3cret'), false);
  assert.deepEqual(sink.lines[0].a, [{ b: { bridgeToken: '[redacted]', email: '***@example.org' } }]);
  assert.deepEqual(sink.lines[0].text, { length: 50, sha256_8: '160b4e43', head40: 'a'.repeat(40) });
  assert.deepEqual(sink.lines[0].pairCode, ['[redacted]']);
});

test('a line below the threshold is not written', () => {
  const sink = recording();
  new Log(sink, { level: 'warn' }).info('x');
  new Log(sink, { level: 'constructor' }).debug('x');
  assert.deepEqual(sink.lines, []);
});

test('what was thrown stands under cause', () => {
  const sink = recording();
  new Log(sink).error('failed', Object.assign(new Error('no'), { code: 'EACCES' }));
  assert.deepEqual(sink.lines[0].cause, { name: 'Error', message: 'no', code: 'EACCES' });
});

test('a grown file is moved aside, and only so many are kept', (t) => {
  const file = temporaryHome(t).inShared('daemon.log');
  const sink = new RotatingFile(file, { maxBytes: 10, keepCount: 2 });
  for (let i = 0; i < 4; i += 1) sink.append(`line ${i} long`);
  assert.deepEqual([`${file}.1`, `${file}.2`].map((f) => fs.readFileSync(f, 'utf8')), ['line 3 long\n', 'line 2 long\n']);
  assert.equal(fs.existsSync(`${file}.3`), false);
});

test('a log that cannot be written harms nobody', (t) => {
  const home = temporaryHome(t);
  fs.writeFileSync(home.inShared('plain'), '');
  new Log(new RotatingFile(home.inShared('plain/daemon.log'))).info('x');
});
