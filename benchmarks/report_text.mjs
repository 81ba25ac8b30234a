// Reads what Google Benchmark writes.

/** Its report as an object. It writes numbers that JSON does not know, such as the spread of a counter that is 0: these are null. */
export function parseReport(text) {
  const stringOrNoNumber = /"(?:[^"\\]|\\.)*"|-?\b(?:nan|inf(?:inity)?)\b/gi;
  return JSON.parse(text.replace(stringOrNoNumber, (found) => (found.startsWith('"') ? found : 'null')));
}
