// Reads server-sent events out of a response's body. The browser's own reader can't show a token but in an address,
// where it would be kept and logged.

/** One block of lines as an event; nothing for a comment. */
function parseBlock(block) {
  let name = 'message';
  const data = [];
  for (const line of block.split('\n')) {
    if (line.startsWith('data:')) data.push(line.slice(5).replace(/^ /, ''));
    else if (line.startsWith('event:')) name = line.slice(6).trim();
  }
  return data.length > 0 ? { name, data: data.join('\n') } : undefined;
}

/** Takes text in pieces of any size and hands over whole events. */
export class EventParser {
  #rest = '';

  /** @returns {{ name: string, data: string }[]} */
  take(text) {
    const blocks = (this.#rest + text.replaceAll('\r', '')).split('\n\n');
    this.#rest = blocks.pop();
    return blocks.map(parseBlock).filter(Boolean);
  }
}
