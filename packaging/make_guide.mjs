// Joins the user guide, its pictures and its style into one self-contained HTML file.
// Usage: node make_guide.mjs GUIDE.md OUT.html
// Fails on a picture that is missing and on a link within the guide that leads nowhere.
import { execFileSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';

const [source, out] = process.argv.slice(2);
const kTypes = { '.png': 'image/png', '.jpg': 'image/jpeg' };

const plainText = (html) => html.replace(/<[^>]*>/g, '').replace(/&(amp|lt|gt|quot);/g, (_, name) => ({ amp: '&', lt: '<', gt: '>', quot: '"' })[name]);

/** The name under which links find a heading, as the web pages that show Markdown make it. */
const anchorOf = (heading) => plainText(heading).trim().toLowerCase().replace(/[^\p{L}\p{N}\s_-]/gu, '').replaceAll(' ', '-');

function withAnchors(html) {
  const seen = new Set();
  return html.replace(/<h([1-6])>(.*?)<\/h\1>/gs, (_, level, heading) => {
    const anchor = anchorOf(heading);
    if (seen.has(anchor)) throw new Error(`Two headings are called "${anchor}".`);
    seen.add(anchor);
    return `<h${level} id="${anchor}">${heading}</h${level}>`;
  });
}

const withPictures = (html) => html.replace(/<img src="([^"]+)"/g, (_, name) => {
  const file = path.join(path.dirname(source), decodeURIComponent(name));
  return `<img src="data:${kTypes[path.extname(file)]};base64,${readFileSync(file).toString('base64')}"`;
});

/** Keeps links within the guide. Links to other documents, which the archive lacks, become plain text. */
const withLinks = (html) => html.replace(/<a href="([^"]*)">(.*?)<\/a>/gs, (link, to, label) => {
  if (/^https?:/.test(to)) return link;
  if (!to.startsWith('#')) return label;
  const anchor = decodeURIComponent(to.slice(1));
  if (!html.includes(` id="${anchor}"`)) throw new Error(`The guide has no heading for the link to "${anchor}".`);
  return `<a href="#${anchor}">${label}</a>`;
});

const body = execFileSync('cmark-gfm', ['-e', 'table', '--to', 'html', source], { encoding: 'utf8' });
const title = plainText(/<h1>(.*?)<\/h1>/s.exec(body)[1]);
const style = readFileSync(path.join(import.meta.dirname, 'guide.css'), 'utf8');
writeFileSync(out, `<!DOCTYPE html>
<html lang="zh-CN">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>${title}</title>
<style>
${style}</style>
</head>
<body>
${withPictures(withLinks(withAnchors(body)))}</body>
</html>
`);
