import assert from 'node:assert/strict';
import fs from 'node:fs';
import test from 'node:test';

import { farMountOf } from '../lib/farMounts.js';
import { temporaryHome } from './home.js';

const mounts = [
  '22 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw',
  '23 22 0:40 / /far rw shared:9 master:2 - nfs4 server:/export rw',
  '24 23 8:2 / /far/near rw - ext4 /dev/sdb1 rw',
  '25 22 0:41 / /home/u/with\\040blank rw - fuse.sshfs host: rw',
  '26 22 0:42 / /hidden rw - cifs //host/share rw',
  '27 22 8:3 / /hidden rw - xfs /dev/sdc1 rw',
].join('\n');

test('a far mount is told by the longest name above a place, and by its kind', (t) => {
  const list = `${temporaryHome(t).home}/mountinfo`;
  fs.writeFileSync(list, `${mounts}\n`);
  const of = (place) => farMountOf(place, list);
  assert.deepEqual(['/far', '/far/a/b', '/farther', '/far/near/a', '/etc', '/home/u/with blank/a', '/hidden/a'].map(of),
    ['/far', '/far', undefined, undefined, undefined, '/home/u/with blank', undefined]);
  assert.equal(farMountOf('/far', `${list}.missing`), undefined);
});

test('the list of this machine is understood', () => {
  assert.equal(farMountOf('/proc/self'), undefined);
});
