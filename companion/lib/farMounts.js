// Where file systems of other machines, or of other programs, are mounted: all of one give no answer together. Read from
// the list that the kernel keeps in memory, which always answers.

import fs from 'node:fs';

const farTypes = /^(nfs4?|cifs|smb3|smbfs|fuse(\..+)?|9p|virtiofs|ceph|afs|lustre|glusterfs|gpfs|beegfs|vboxsf|autofs)$/;

/** Blanks and the like are written as their octal numbers. */
const unescaped = (text) => text.replace(/\\([0-7]{3})/g, (_, digits) => String.fromCharCode(parseInt(digits, 8)));

/** @returns {{ point: string, type: string }[]} */
function mounts(list) {
  try {
    return fs.readFileSync(list, 'latin1').split('\n').map((line) => {
      const fields = line.split(' ');
      return { point: unescaped(fields[4] ?? ''), type: fields[fields.indexOf('-') + 1] };
    }).filter(({ point }) => point.startsWith('/'));
  } catch {
    return [];
  }
}

/**
 * The mount that `place` lies on by its name, where that is one of another machine or program: links aren't followed,
 * since that would have to be asked.
 * @param {string} place
 * @returns {string | undefined}
 */
export function farMountOf(place, list = '/proc/self/mountinfo') {
  const name = Buffer.from(place).toString('latin1');
  let found = { point: '', type: '' };
  for (const mount of mounts(list)) {
    const isAbove = mount.point === '/' || name === mount.point || name.startsWith(`${mount.point}/`);
    // Of those at one place the last hides the others.
    if (isAbove && mount.point.length >= found.point.length) found = mount;
  }
  return farTypes.test(found.type) ? found.point : undefined;
}
