#!/usr/bin/env node
// The control tool: the daemon's start and end, start at login, and a look at what runs. The work is in lib/ctl.

import process from 'node:process';

import { runCtl } from './lib/ctl/main.js';

// Whoever reads the answer may go before it is written.
for (const stream of [process.stdout, process.stderr]) stream.on('error', () => {});
process.exitCode = await runCtl(process.argv.slice(2));
