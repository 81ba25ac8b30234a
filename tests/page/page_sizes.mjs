// The tested window sizes in CSS pixels of the inside, with Windows' scale.

export const kSizes = Object.freeze([
  { width: 803, height: 547, scale: 1.5 },  // the smallest window, on a laptop at 150 %
  { width: 1204, height: 781 },             // the first window
  { width: 1366, height: 768 },
  { width: 1920, height: 1080 },
  { width: 1920, height: 1080, scale: 2 },  // a screen of 3840 x 2160 at 200 %
]);

export const sizeName = ({ width, height, scale = 1 }) => `${width} x ${height}${scale === 1 ? '' : ` at ${scale * 100} %`}`;
