// What the system knows of a browser's processes.
import { readdir, readFile } from 'node:fs/promises';

/** Ids of the processes that run the pages of the browser `pid`, which leads a process group. */
export async function rendererProcesses(pid) {
  const found = [];
  for (const name of await readdir('/proc')) {
    if (!/^\d+$/.test(name)) continue;
    const [stat, line] = await Promise.all(['stat', 'cmdline'].map((file) =>
      readFile(`/proc/${name}/${file}`, 'utf8').catch(() => '')));
    // The name of the program, in parentheses, may hold blanks; state, parent and group follow it.
    const group = Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[2]);
    if (group === pid && line.includes('--type=renderer')) found.push(Number(name));
  }
  return found;
}
