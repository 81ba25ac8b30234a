// A face like Microsoft YaHei UI, which cannot be had here: WenQuanYi's letters, made to stand in a line as high as that.

/** A line of about 1.32 of the letter size, as is said of Windows' face; not measured on Windows. */
const kFace = `@font-face {
  font-family: "Microsoft YaHei UI"; src: local("WenQuanYi Micro Hei"); ascent-override: 106%; descent-override: 26%;
}`;

/** For BrowserPage.open({ alter }). */
export const inYaHei = (html) => html.replace('<style>', `<style>${kFace}`);

/** Whether the face is there and in use. */
export const isInYaHei = (page) => page.view.evaluate(async () => {
  await document.fonts.ready;
  return [...document.fonts].some(({ family, status }) => family.includes('YaHei') && status === 'loaded');
});
