// Runs one command with its own Wine installation and virtual display, and ends both afterwards.
// Usage: node lab/run/under_wine.mjs COMMAND [ARGUMENT...]
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import path from 'node:path';

import { Display } from '../harness/display.mjs';
import { kBuild, kLabSuffix } from '../harness/paths.mjs';
import { Processes } from '../harness/processes.mjs';
import { WinePrefix } from '../harness/wine.mjs';

const processes = new Processes();
const prefix = new WinePrefix(path.join(kBuild, `lab-unit${kLabSuffix}/prefix`));
const display = new Display();
let code = 1;
try {
  await prefix.ensure();
  await display.start(processes);
  const [command, ...args] = process.argv.slice(2);
  const child = spawn(command, args, {
    stdio: 'inherit', env: { ...process.env, ...prefix.env, DISPLAY: display.name },
  });
  [code] = await once(child, 'exit');
} finally {
  await prefix.stopServer();
  await processes.stopAll();
}
process.exitCode = code ?? 1;
