// Finds leftovers of a closed lab on this machine.
import { readdir, readFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';

import { kProfilePrefix } from '../standins/browser/chromium.mjs';
import { kLabSuffix } from './paths.mjs';

export const kWorkFolderPrefix = `velmarine${kLabSuffix}-lab-`;

/** Other live processes whose command line or environment contains one of `texts`. */
export async function processesHolding(texts) {
  const found = [];
  for (const pid of await readdir('/proc')) {
    if (!/^\d+$/.test(pid) || Number(pid) === process.pid) continue;
    const about = await Promise.all(['cmdline', 'environ'].map((name) =>
      readFile(`/proc/${pid}/${name}`, 'utf8').catch(() => '')));
    if (texts.some((text) => about.join('\0').includes(text))) {
      found.push(`process ${pid}: ${about[0].replaceAll('\0', ' ').slice(0, 100)}`);
    }
  }
  return found;
}

/** A lab's and its browser's folders in the temporary folder. */
export async function temporaryFolders() {
  const names = await readdir(tmpdir());
  return names.filter((name) => name.startsWith(kWorkFolderPrefix) || name.startsWith(kProfilePrefix))
    .map((name) => `folder ${name}`);
}
