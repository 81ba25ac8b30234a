// Creates the Windows installation that labs copy, before several of them start at once.
// Usage: node lab/run/prepare.mjs
import { ensureTemplate } from '../harness/wine.mjs';

await ensureTemplate();
