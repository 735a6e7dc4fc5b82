// Every page at every size: its parts are there and large enough, nothing sticks out, and axe finds nothing.

import assert from 'node:assert/strict';
import {copyFileSync, mkdirSync, readFileSync} from 'node:fs';
import {createRequire} from 'node:module';
import path from 'node:path';
import {after, before, test} from 'node:test';
import {pages} from './page_table.js';
import {close, launch, open, onScreen, rest, Pages, pagesIn, pictures, scratch, sizes, source} from './support.js';

const kSmallestTarget = 48;  // pixels
const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

const windows = {
  'upright': {...sizes.upright, colorScheme: 'light'},
  'upright-dark': {...sizes.upright, colorScheme: 'dark'},
  'lying': {...sizes.lying, colorScheme: 'light'},
  'lying-dark': {...sizes.lying, colorScheme: 'dark'},
  'pc': {...sizes.pc, colorScheme: 'light'},
  'pc-dark': {...sizes.pc, colorScheme: 'dark'},
};

// The pictures that the documentation shows; JX_DOC_SCREENSHOTS=1 puts them there.
const documented = ['mainmenu-upright', 'download-lying', 'download-http-upright', 'download-http-lying-dark',
  'download-ddl-message-lying', 'result-log-upright-dark', 'result-error-lying', 'settings-upright', 'prx-settings-lying',
  'result-gateway-upright', 'mainmenu-pc'];

function keepPicture(file, name) {
  if (!process.env.JX_DOC_SCREENSHOTS || !documented.includes(name)) return;
  const folder = path.join(source, 'docs/screenshots');
  mkdirSync(folder, {recursive: true});
  copyFileSync(file, path.join(folder, `${name}.png`));
}

// Runs in the browser: what is wrong with the measures of the page, one line each.
function measure(smallest) {
  const wrong = [];
  for (const element of document.querySelectorAll('#screen button, #screen label')) {
    const {width, height} = element.getBoundingClientRect();
    const shown = element.checkVisibility();
    if (shown && (width < smallest || height < smallest)) wrong.push(`${element.textContent} is ${width} x ${height}`);
  }
  for (const element of [document.documentElement, document.querySelector('.content')]) {
    if (element.scrollWidth > element.clientWidth) wrong.push(`${element.localName} is wider than its place`);
  }
  for (const element of document.querySelectorAll('.menu button, header button, footer button')) {
    const {top, bottom, left, right} = element.getBoundingClientRect();
    if (top < 0 || left < 0 || bottom > innerHeight || right > innerWidth) wrong.push(`${element.textContent} is cut off`);
  }
  const headings = document.querySelectorAll('h1').length;
  if (headings !== 1 || !document.querySelector('main h1')) wrong.push(`${headings} first headings`);
  if (document.documentElement.lang !== 'en' || !document.title) wrong.push('no language or title');
  return wrong;
}

async function violationsIn(window) {
  await window.evaluate(axe);
  const {violations} = await window.evaluate(() => globalThis.axe.run());
  return violations
    .map(({id, nodes}) => `${id}: ${nodes.map(({html}) => html).join(' ')}`);
}

async function check(window, name, entry) {
  for (const part of entry.parts) await window.getByRole(part.role, {name: part.name, exact: true}).waitFor();
  const text = await window.locator('#screen').innerText();
  for (const part of entry.texts) assert.ok(text.includes(part), `${name}: "${part}" is not in: ${text}`);
  const buttons = entry.parts.filter(({role}) => role === 'button').length;
  assert.equal(await window.getByRole('button').count(), buttons, `${name}: buttons`);
  const file = path.join(pictures(), `${name}.png`);
  await window.screenshot({path: file});
  keepPicture(file, name);
  assert.deepEqual(await window.evaluate(measure, kSmallestTarget), [], name);
  assert.deepEqual(await violationsIn(window), [], name);
}

before(launch);
after(close);

for (const [size, options] of Object.entries(windows)) {
  test(`pages at ${size}`, async (t) => {
    const shown = new Pages(t, scratch(t));
    await shown.show('mainmenu.html');
    const window = await open(t, await shown.url(), options);
    await onScreen(window, 'mainmenu.html');
    for (const entry of pages) {
      await t.test(entry.as, async () => {
        if (entry.async) await shown.showAsync(entry.page, entry.vars);
        else await shown.show(entry.page, entry.vars);
        if (entry.page === 'install-ddl.html') await shown.returned(entry.page);
        else await onScreen(window, entry.page);
        await check(window, `${entry.as}-${size}`, entry);
      });
    }
  });
}

for (const [size, options] of Object.entries(windows)) {
  test(`axe finds nothing in a question, nor while the terminal is busy, at ${size}`, async (t) => {
    const {shown, window} = await pagesIn(t, options);
    await window.keyboard.press('Escape');
    await window.getByRole('dialog').waitFor();
    assert.deepEqual(await violationsIn(window), []);
    await rest(window);
    await window.evaluate(() => { globalThis.hastened[5000] = 1; });
    await window.keyboard.press('Escape');
    await window.getByRole('dialog').waitFor({state: 'detached'});
    await rest(window);
    await window.keyboard.press('1');
    await shown.returned('mainmenu.html');
    await window.getByText('The terminal is busy. Please wait.').waitFor();
    assert.deepEqual(await violationsIn(window), []);
  });
}
