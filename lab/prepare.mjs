// Makes the Windows installation that labs copy, before several of them start at once.
// Usage: node lab/prepare.mjs
import { ensureTemplate } from './wine.mjs';

await ensureTemplate();
