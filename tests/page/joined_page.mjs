// The page in one piece, joined from its parts the way the build does it.
import { execFileSync } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

const kScript = path.join(import.meta.dirname, '../../webui/join.cmake');

function join() {
  const folder = mkdtempSync(path.join(tmpdir(), 'velmarine-page-'));
  try {
    const file = path.join(folder, 'app.html');
    execFileSync('cmake', [`-DOUT=${file}`, '-P', kScript]);
    return readFileSync(file);
  } finally {
    rmSync(folder, { recursive: true, force: true });
  }
}

export const kPageBytes = join();
export const kPage = kPageBytes.toString('utf8');
