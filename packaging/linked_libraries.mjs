// Finds the system libraries that a program was linked with, and their Debian packages.
import { execFileSync } from 'node:child_process';
import { readFileSync, realpathSync } from 'node:fs';
import path from 'node:path';

/** The system's archives and object files that contributed to a program, according to the linker's map. */
export function linkedFiles(map) {
  const files = new Set();
  for (const [, file] of map.matchAll(/^(\/\S+\.a)\(\S+\)/gm)) files.add(file);
  for (const [, file] of map.matchAll(/^LOAD (\/\S+\.o)$/gm)) files.add(file);
  return [...files].map((file) => path.normalize(file)).sort();
}

/** {package, version, architecture, source, sourceVersion} of the Debian package that `file` belongs to. */
export function owner(file) {
  const names = new Set([file, realpathSync(file)]);
  for (const name of names) {
    try {
      const [line] = execFileSync('dpkg-query', ['-S', name], { encoding: 'utf8', stdio: ['ignore', 'pipe', 'ignore'] }).split('\n');
      return packageOf(line.split(':')[0]);
    } catch {
      // Unknown under this name: /lib and /usr/lib are one folder, and dpkg knows a file by one of the two paths.
    }
  }
  throw new Error(`${file} is linked into the program and belongs to no Debian package.`);
}

function packageOf(name) {
  const kFields = ['Package', 'Version', 'Architecture', 'source:Package', 'source:Version'];
  const format = kFields.map((field) => `\${${field}}`).join('\t');
  const values = execFileSync('dpkg-query', ['-W', '-f', format, name], { encoding: 'utf8' }).split('\t');
  const [packageName, version, architecture, source, sourceVersion] = values;
  return { package: packageName, version, architecture, source, sourceVersion };
}

/** The files that a map names, but for those of the build itself. */
export function systemLibraries(mapFile, buildFolder) {
  return linkedFiles(readFileSync(mapFile, 'utf8')).filter((file) => !file.startsWith(`${buildFolder}/`));
}
