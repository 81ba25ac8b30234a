// Reads Google Benchmark's report.

/** The report as an object. Values that JSON has no number for (the spread of a counter that is 0 is NaN) become null. */
export function parseReport(text) {
  const stringOrNoNumber = /"(?:[^"\\]|\\.)*"|-?\b(?:nan|inf(?:inity)?)\b/gi;
  return JSON.parse(text.replace(stringOrNoNumber, (found) => (found.startsWith('"') ? found : 'null')));
}
