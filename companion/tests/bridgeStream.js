// A stream of pictures as a device reads it.

import { EventParser } from '../remote/events.js';
import { until } from './home.js';

/** Opens a stream and collects its events. */
export async function listenTo(t, home, headers) {
  const abort = new AbortController();
  t.after(() => abort.abort());
  const response = await fetch(`${home.origin}/api/now-playing`, { headers, signal: abort.signal });
  const stream = { status: response.status, events: [], text: '', ended: false, abort };
  const parser = new EventParser();
  const read = async () => {
    for await (const bytes of response.body) {
      const text = Buffer.from(bytes).toString();
      stream.text += text;
      stream.events.push(...parser.take(text).map((event) => ({ ...event, data: JSON.parse(event.data) })));
    }
  };
  read()
    .catch(() => {})
    .finally(() => {
      stream.ended = true;
    });
  stream.last = () => stream.events.at(-1)?.data;
  stream.until = (condition) => until(() => stream.last() && condition(stream.last()), { what: String(condition) });
  return stream;
}
