// A zip archive in memory, of a few files of modest size: names in UTF-8, deflated, readable by their owner alone once
// unpacked. No file may reach 4 GB.

import { deflateRawSync } from 'node:zlib';

const crcTable = Uint32Array.from({ length: 256 }, (_, n) => {
  let c = n;
  for (let bit = 0; bit < 8; bit += 1) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
  return c;
});

/** @param {Uint8Array} bytes */
export function crc32(bytes) {
  let crc = 0xffffffff;
  // By index: logs have millions of bytes, and an iterator takes several times as long.
  for (let i = 0; i < bytes.length; i += 1) crc = crcTable[(crc ^ bytes[i]) & 0xff] ^ (crc >>> 8);
  return (crc ^ 0xffffffff) >>> 0;
}

const limit = 0xffffffff;
const version = 20;
const madeOnUnix = 3 << 8;
const utf8Names = 0x0800;
const deflated = 8;
const ownerOnly = (0o100600 << 16) >>> 0;

/** The format counts in steps of two seconds, in local time, from 1980. */
function dosTime(date) {
  const time = (date.getHours() << 11) | (date.getMinutes() << 5) | (date.getSeconds() >> 1);
  const day = (Math.max(0, date.getFullYear() - 1980) << 9) | ((date.getMonth() + 1) << 5) | date.getDate();
  return [time, day];
}

/** What the local header and the directory say alike, from the version needed to the name's length. */
function shared({ name, packed, content, date }) {
  const fields = Buffer.alloc(26);
  const [time, day] = dosTime(date);
  fields.writeUInt16LE(version, 0);
  fields.writeUInt16LE(utf8Names, 2);
  fields.writeUInt16LE(deflated, 4);
  fields.writeUInt16LE(time, 6);
  fields.writeUInt16LE(day, 8);
  fields.writeUInt32LE(crc32(content), 10);
  fields.writeUInt32LE(packed.length, 14);
  fields.writeUInt32LE(content.length, 18);
  fields.writeUInt16LE(name.length, 22);
  return fields;
}

function directoryRow({ name, fields, offset }) {
  const head = Buffer.alloc(6);
  head.writeUInt32LE(0x02014b50, 0);
  head.writeUInt16LE(version | madeOnUnix, 4);
  const tail = Buffer.alloc(14);
  tail.writeUInt32LE(ownerOnly, 6);
  tail.writeUInt32LE(offset, 10);
  return Buffer.concat([head, fields, tail, name]);
}

function directoryEnd(count, size, offset) {
  const end = Buffer.alloc(22);
  end.writeUInt32LE(0x06054b50, 0);
  end.writeUInt16LE(count, 8);
  end.writeUInt16LE(count, 10);
  end.writeUInt32LE(size, 12);
  end.writeUInt32LE(offset, 16);
  return end;
}

/**
 * @param {Array<{ name: string, content: string | Uint8Array }>} files
 * @param {Date} [date] of all of them
 * @returns {Buffer}
 */
export function zip(files, date = new Date()) {
  const pieces = [];
  const rows = [];
  let offset = 0;
  for (const file of files) {
    const content = Buffer.from(file.content);
    const name = Buffer.from(file.name);
    const packed = deflateRawSync(content);
    if (content.length > limit || offset + packed.length > limit) throw new RangeError('too large for a zip file');
    const fields = shared({ name, packed, content, date });
    const local = Buffer.concat([Buffer.from('PK\x03\x04', 'latin1'), fields, name, packed]);
    rows.push(directoryRow({ name, fields, offset }));
    pieces.push(local);
    offset += local.length;
  }
  const directory = Buffer.concat(rows);
  return Buffer.concat([...pieces, directory, directoryEnd(rows.length, directory.length, offset)]);
}
