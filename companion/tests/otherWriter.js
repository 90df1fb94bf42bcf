// Another program that rewrites the shared document as fast as it can, in a process of its own, until it is told to end.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { text } from 'node:stream/consumers';

const program = `
  import { updateDocument } from ${JSON.stringify(new URL('../lib/sharedDocument.js', import.meta.url).href)};
  const [document, counter, ...speeds] = process.argv.slice(1);
  let isOver = false;
  let count = 0;
  process.stdin.on('end', () => { isOver = true; }).resume();
  while (!isOver) {
    await updateDocument(document, (values) => {
      values.set(counter, (values.get(counter) ?? 0) + 1);
      if (speeds.length > 0) values.set('speed', Number(speeds[count % speeds.length]));
    });
    count += 1;
    await new Promise((resolve) => { setTimeout(resolve, 2); });
  }
  console.log(count);`;

/**
 * Starts it. It counts its rewrites in the member `counter`, and sets the speed to one after the other of `speeds`.
 * @returns {{ stop(): Promise<number> }} which gives the count
 */
export function startWriter(t, document, counter, speeds = []) {
  const child = spawn(process.execPath, ['--input-type=module', '-e', program, document, counter, ...speeds.map(String)],
    { stdio: ['pipe', 'pipe', 'inherit'] });
  t.after(() => child.kill('SIGKILL'));
  const done = Promise.all([text(child.stdout), once(child, 'exit')]);
  return {
    async stop() {
      child.stdin.end();
      const [said, [code]] = await done;
      assert.equal(code, 0);
      return Number(said);
    },
  };
}
