// The remote as one self-contained answer. Its pieces lie in remote/ as a style sheet and small modules; they are put
// into the document here, once, and the policy that goes with it names them by their digests, so that the browser runs
// nothing else.

import { createHash } from 'node:crypto';
import fs from 'node:fs';

const folder = new URL('../../remote/', import.meta.url);

/** In this order, since they become one script. */
const modules = ['words.js', 'colours.js', 'events.js', 'connection.js', 'caption.js', 'controls.js', 'main.js'];

const read = (name) => fs.readFileSync(new URL(name, folder), 'utf8');
const digest = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;

/** Modules that share one script need no imports: each name exists once among them. */
function joinModules() {
  const withoutImports = (text) => text.replace(/^import [^;]*;\n/gm, '').replace(/^export (?=\S)/gm, '');
  return `'use strict';\n${modules.map((name) => withoutImports(read(name))).join('\n')}`;
}

/** @returns {{ html: string, policy: string }} */
export function buildPage() {
  const style = read('remote.css');
  const script = joinModules();
  const html = read('index.html')
    .replace('<style></style>', () => `<style>${style}</style>`)
    .replace('<script></script>', () => `<script type="module">${script}</script>`);
  const policy = [
    "default-src 'none'", `script-src ${digest(script)}`, `style-src ${digest(style)}`, "connect-src 'self'",
    'img-src data:', "base-uri 'none'", "form-action 'none'", "frame-ancestors 'none'",
    "require-trusted-types-for 'script'", "trusted-types 'none'",
  ].join('; ');
  return { html, policy };
}
