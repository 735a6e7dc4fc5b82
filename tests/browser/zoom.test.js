// Every page magnified to twice its size: each part comes into sight whole, by scrolling down at most, and no text is cut off.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {pages} from './page_table.js';
import {close, launch, onScreen, open, Pages, pagesIn, scratch, sizes} from './support.js';

// A browser that magnifies has half as many pixels, each twice as large.
function magnified({viewport, ...options}) {
  return {...options, viewport: {width: viewport.width / 2, height: viewport.height / 2}, deviceScaleFactor: 2};
}

// Runs in the browser: what nobody gets to see, one line each.
function unseen() {
  const wrong = [];
  const shown = (element) => element.checkVisibility() && !element.closest('.unseen');
  for (const element of document.querySelectorAll('#screen :is(h1, button, label, legend, dt, dd, li, p, summary)')) {
    if (!shown(element)) continue;
    element.scrollIntoView({block: 'nearest'});
    const {top, bottom, left, right, height} = element.getBoundingClientRect();
    const what = `${element.localName} "${element.textContent.slice(0, 40)}"`;
    if (left < -0.5 || right > innerWidth + 0.5) wrong.push(`${what} sticks out to the side`);
    if (!element.matches('h1, button, label, summary')) continue;
    if (top < -0.5 || bottom > innerHeight + 0.5) wrong.push(`${what} of ${height} pixels is not whole in sight`);
    for (const y of [top + 2, bottom - 2]) {
      const hit = document.elementFromPoint((left + right) / 2, y);
      if (!element.contains(hit)) wrong.push(`${what} is covered by ${hit?.localName}.${hit?.className}`);
    }
  }
  const texts = document.createTreeWalker(document.getElementById('screen'), NodeFilter.SHOW_TEXT);
  while (texts.nextNode()) {
    const {currentNode: text} = texts;
    if (!text.data.trim() || !shown(text.parentElement) || text.parentElement.closest('.text_nowrap_tick')) continue;
    const words = [...text.data.matchAll(/\S+/g)].flatMap((word) => {  // a blank at a line's end may hang over
      const range = document.createRange();
      range.setStart(text, word.index);
      range.setEnd(text, word.index + word[0].length);
      return [...range.getClientRects()];
    });
    for (const place of words) {
      for (let element = text.parentElement, scrolls = false; element; element = element.parentElement) {
        const {overflowX, overflowY} = getComputedStyle(element), box = element.getBoundingClientRect();
        const beside = overflowX !== 'visible' && (place.left < box.left - 0.5 || place.right > box.right + 0.5);
        scrolls ||= overflowY === 'auto';
        const below = !scrolls && overflowY === 'hidden' && (place.top < box.top - 2 || place.bottom > box.bottom + 2);
        if (beside || below) wrong.push(`"${text.data.slice(0, 40)}" is cut off by ${element.localName}.${element.className}`);
      }
    }
  }
  return [...new Set(wrong)];
}

before(launch);
after(close);

for (const [size, options] of Object.entries(sizes)) {
  test(`pages at ${size}, magnified`, async (t) => {
    const shown = new Pages(t, scratch(t));
    await shown.show('mainmenu.html');
    const window = await open(t, await shown.url(), magnified(options));
    await onScreen(window, 'mainmenu.html');
    for (const entry of pages) {
      await t.test(entry.as, async () => {
        if (entry.async) await shown.showAsync(entry.page, entry.vars);
        else await shown.show(entry.page, entry.vars);
        if (entry.page === 'install-ddl.html') await shown.returned(entry.page);
        else await onScreen(window, entry.page);
        assert.deepEqual(await window.evaluate(unseen), [], entry.as);
      });
    }
  });

  test(`a question at ${size}, magnified`, async (t) => {
    const {window} = await pagesIn(t, magnified(options));
    await window.keyboard.press('Escape');
    await window.getByRole('dialog').waitFor();
    for (const name of ['Leave', 'Stay']) await window.getByRole('button', {name}).click({trial: true});
    assert.deepEqual((await window.evaluate(unseen)).filter((line) => !/is covered by/.test(line)), []);
  });
}

test('keys scroll the whole of a magnified page, and the next one begins at its top', async (t) => {
  const {shown, window} = await pagesIn(t, magnified(sizes.lying));
  await shown.bring(window, 'result.html', {text: 'One line<br>'.repeat(40)});
  const top = () => window.locator('h1').evaluate((heading) => heading.getBoundingClientRect().top);
  assert.ok(await top() >= 0);
  await window.keyboard.press('End');
  assert.ok(await top() < -500);
  await window.keyboard.press('Home');
  assert.ok(await top() >= 0);
  await window.keyboard.press('PageDown');
  assert.ok(await top() < 0);
  await window.keyboard.press('Escape');
  await shown.returned('result.html');
  await shown.bring(window, 'info.html', {serialNo: '1', sponsorId: '2', uiVersion: '3'});
  assert.ok(await top() >= 0);
});
