// The version in a Windows program's file.

/** "ProductVersion" of the version resource in the file's bytes; throws if there is none. */
export function fileVersion(bytes) {
  const name = Buffer.from('ProductVersion\0', 'utf16le');
  const at = bytes.indexOf(name);
  if (at === -1) throw new Error('There is no version resource.');
  const value = bytes.subarray(at + name.length, at + name.length + 64).toString('utf16le');
  return /^\0*([\d.]+)\0/.exec(value)[1];
}
