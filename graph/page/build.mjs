// Makes the page's template from src/: one file with its style and its script within, which a content security policy
// admits by their hashes and nothing else; beside it the licences of what it holds. Usage: node build.mjs FOLDER
import { createHash } from 'node:crypto';
import { readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { build } from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const read = (...path) => readFileSync(join(here, ...path), 'utf8');

async function bundle(entry, loader) {
  const result = await build({
    entryPoints: [join(here, 'src', entry)], bundle: true, minify: true, write: false, format: 'iife', target: 'es2022', charset: 'ascii',
    legalComments: 'none', absWorkingDir: here, ...loader,
  });
  return result.outputFiles[0].text.trim();
}

const hash = (text) => `'sha256-${createHash('sha256').update(text).digest('base64')}'`;

const script = await bundle('main.js');
const style = await bundle('page.css', { format: undefined });
const licences = ['cytoscape', '@dagrejs/dagre', '@dagrejs/graphlib']
  .map((name) => `${name} ${JSON.parse(read('node_modules', name, 'package.json')).version}\n\n${read('node_modules', name, 'LICENSE').trim()}\n`);
const policy = `default-src 'none'; script-src ${hash(script)}; style-src ${hash(style)}; img-src data:; base-uri 'none'; form-action 'none'`;

const parts = { POLICY: policy, STYLE: style, SCRIPT: script, LICENCES: licences.join(`\n${'-'.repeat(80)}\n\n`).trim() };
const page = read('src', 'page.html').replace(/@(POLICY|STYLE|SCRIPT|LICENCES)@/g, (_, name) => parts[name]);
function demand(kept, what) {
  if (!kept) throw new Error(what);
}
demand(!/<\/script|<!--|<script/i.test(script) && !/<\/style/i.test(style), 'The script or the style ends its element.');
demand(!parts.LICENCES.includes('-->'), 'The licences end their comment.');
demand(page.split('@DATA@').length === 2, 'The page has not one place for the data.');
writeFileSync(join(process.argv[2], 'page.html'), page);
writeFileSync(join(process.argv[2], 'LICENCES'), `${parts.LICENCES}\n`);
