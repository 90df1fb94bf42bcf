import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import test from 'node:test';

import { crc32, zip } from '../lib/diag/zip.js';
import { temporaryHome } from './home.js';

test('the check sums are those of the standard', () => {
  assert.equal(crc32(Buffer.from('123456789')), 0xcbf43926);
  assert.equal(crc32(Buffer.alloc(0)), 0);
});

test('another program unpacks what was packed, with names, times and modes', (t) => {
  const { home } = temporaryHome(t);
  const file = path.join(home, 'x.zip');
  const noise = randomBytes(200_000);
  const files = [{ name: 'a/ä.txt', content: 'Grüße' }, { name: 'empty', content: '' }, { name: 'noise', content: noise },
    { name: 'zeros', content: Buffer.alloc(1_000_000) }];
  fs.writeFileSync(file, zip(files, new Date(2026, 10, 22, 3, 4, 6)));
  const program = `
import sys, zipfile, hashlib
z = zipfile.ZipFile(sys.argv[1])
assert z.testzip() is None
for i in z.infolist():
    print(i.filename, i.file_size, hashlib.sha256(z.read(i)).hexdigest()[:8], i.date_time, oct(i.external_attr >> 16))
`;
  const { stdout, stderr } = spawnSync('python3', ['-c', program, file], { encoding: 'utf8' });
  assert.equal(stderr, '');
  const lines = stdout.trim().split('\n');
  assert.equal(lines.length, 4);
  assert.match(lines[0], /^a\/ä\.txt 7 [0-9a-f]{8} \(2026, 11, 22, 3, 4, 6\) 0o100600$/);
  assert.match(lines[2], /^noise 200000 /);
  assert.ok(fs.statSync(file).size < 210_000);
});
