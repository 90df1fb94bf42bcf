import assert from 'node:assert/strict';
import test from 'node:test';

import { leadingPieces, trailingPieces } from '../lib/discovery/jsonPieces.js';

const messages = Array.from({ length: 7 }, (_, i) => ({
  id: i, text: `a "quoted\\" ]}[{, \n ${'\\'.repeat(i)} ü`, nested: [{ messages: ['x'] }, -1.5e3, null, true],
    empty: {},
}));
const shapes = {
  object: { sessionId: 's', n: -1, messages, summary: 'to "end"', after: { a: [1] } },
  list: messages,
};

for (const [name, value] of Object.entries(shapes)) {
  for (const indent of [undefined, '\t']) {
    const text = JSON.stringify(value, null, indent);

    test(`every beginning of a document gives what is complete in it: ${name} ${indent ? 'indented' : 'dense'}`, () => {
      for (let cut = 0; cut <= text.length; cut += 1) {
        const { elements } = leadingPieces(text.slice(0, cut));
        assert.deepEqual(elements, messages.slice(0, elements.length), `cut at ${cut}`);
      }
      const whole = leadingPieces(text);
      assert.equal(whole.elements.length, 7);
      if (name === 'object') {
        assert.deepEqual({ ...whole.members }, { sessionId: 's', n: -1, summary: 'to "end"', after: { a: [1] } });
      }
    });

    test(`every end of a document gives what is complete in it: ${name} ${indent ? 'indented' : 'dense'}`, () => {
      const newestFirst = [...messages].reverse();
      let most = 0;
      for (let cut = text.length; cut >= 0; cut -= 1) {
        const { elements } = trailingPieces(text.slice(cut));
        if (elements.length === 0) continue;
        assert.deepEqual(elements, newestFirst.slice(0, elements.length), `cut at ${cut}`);
        assert.ok(elements.length >= most, `fewer at ${cut}`);
        most = elements.length;
      }
      assert.equal(most, 7);
    });
  }
}

test('what is no document gives nothing, and ends', () => {
  for (const text of ['', '{', '[', '"', '}', ']', 'x', '{"messages":', '{"messages":[', '[,', '{,}', '{"a"}', '[1 2',
    ':]', '":}', '\\"}']) {
    for (const pieces of [leadingPieces(text), trailingPieces(text)]) {
      assert.ok(pieces.elements.length <= 1, text);
    }
  }
});
