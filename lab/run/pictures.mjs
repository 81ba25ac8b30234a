// Takes all of the user guide's pictures, docs/images/*.png, anew: of the states from the page, the others from the
// program in the lab:
//   node lab/run/pictures.mjs        (as root, after ./test has built everything)
import { execFileSync } from 'node:child_process';
import path from 'node:path';

import { kRepo } from '../harness/paths.mjs';

for (const [script, ...options] of [['page_pictures.mjs', '--guide'], ['screenshots.mjs']]) {
  execFileSync(process.execPath, [path.join(kRepo, 'lab', script), ...options], { stdio: 'inherit' });
}
