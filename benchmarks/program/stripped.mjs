// The program as released: without symbols, which Wine would load as well, and with the published driver files.
import { stat } from 'node:fs/promises';
import path from 'node:path';

import { kBuild, kProgramFile } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';

const kStandIns = ['WinDivert.dll', 'WinDivert64.sys'].map((name) => path.join(kBuild, 'windows/lab/driver', name));
/** Of WinDivert 2.2.2-A, folder x64. */
const kPublishedBytes = 47_104 + 94_208;

const bytesOf = async (file) => (await stat(file)).size;

/** Writes the lab's program without its symbols into `folder` and returns its path. */
export async function stripProgram(folder) {
  const file = path.join(folder, path.basename(kProgramFile));
  await runOrFail(['x86_64-w64-mingw32-strip', '-o', file, kProgramFile]);
  return file;
}

/** The stripped program's size in bytes, less the stand-ins that it embeds, with the published files in their place. */
export async function releaseBytes(stripped) {
  const standIns = await Promise.all(kStandIns.map(bytesOf));
  return await bytesOf(stripped) - standIns.reduce((sum, bytes) => sum + bytes) + kPublishedBytes;
}
