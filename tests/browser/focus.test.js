// Whoever works the pages by keys sees where he is: every part that Tab reaches shows its focus, on every display.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {pages} from './page_table.js';
import {close, launch, pagesIn} from './support.js';
import {keyboards} from './ways.js';

before(launch);
after(close);

// Runs in the browser: what has the focus, and what is wrong with how it shows it.
function focused() {
  const kLeastContrast = 3;
  const element = document.activeElement;
  if (element === document.body || element.id === 'screen') return null;
  const shown = element.closest('label') ?? element;  // a choice shows it around itself and its text

  const look = () => {
    const {outlineStyle, outlineWidth, outlineColor, outlineOffset} = getComputedStyle(shown);
    return {width: outlineStyle === 'none' ? 0 : parseFloat(outlineWidth), colour: outlineColor, offset: parseFloat(outlineOffset)};
  };
  const channels = (colour) => colour.match(/[\d.]+/g).map(Number);
  const luminance = (colour) => {
    const [red, green, blue] = channels(colour).map((value) => value / 255)
      .map((value) => (value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4));
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
  };
  const contrast = (one, other) => {
    const [dark, light] = [luminance(one), luminance(other)].sort((a, b) => a - b);
    return (light + 0.05) / (dark + 0.05);
  };
  const ground = (start) => {
    let at = start;
    while (channels(getComputedStyle(at).backgroundColor)[3] === 0) at = at.parentElement;
    return getComputedStyle(at).backgroundColor;
  };
  // The part of the window in which the outline is not cut off.
  const room = () => {
    const box = {left: 0, top: 0, right: innerWidth, bottom: innerHeight};
    for (let at = shown.parentElement; at; at = at.parentElement) {
      if (getComputedStyle(at).overflowX === 'visible') continue;
      const {left, top, right, bottom} = at.getBoundingClientRect();
      box.left = Math.max(box.left, left);
      box.top = Math.max(box.top, top);
      box.right = Math.min(box.right, right);
      box.bottom = Math.min(box.bottom, bottom);
    }
    return box;
  };

  const wrong = [];
  const {width, colour, offset} = look();
  element.blur();
  const unfocused = look();
  element.focus();
  if (width < 2) wrong.push(`an outline of ${width} pixels`);
  if (unfocused.width > 0) wrong.push('an outline without the focus as well');
  // An outline that is not clear of its part borders on the part's own ground, too.
  for (const around of new Set([ground(shown.parentElement), offset > 0 ? ground(shown.parentElement) : ground(shown)])) {
    const reached = contrast(colour, around);
    if (reached < kLeastContrast) wrong.push(`${colour} on ${around}: ${reached.toFixed(2)} to 1`);
  }
  const {left, top, right, bottom} = shown.getBoundingClientRect();
  const whole = room();
  const by = width + offset;
  if (left - by < whole.left || right + by > whole.right) wrong.push('cut off at the sides');
  if (top - by < whole.top || bottom + by > whole.bottom) wrong.push('cut off above or below');
  return {name: shown.innerText.replace(/\s+/g, ' ').trim(), wrong};
}

// What Tab leads to, from where the page comes up until it has gone round; each with what is wrong. From the last part to the
// first the focus goes through the browser's own process, so that a part may be met twice in a row.
async function stops(window) {
  const found = new Map();
  let last;
  for (let steps = 0; steps < 40; ++steps) {
    const stop = await window.evaluate(focused);
    const [first] = found.keys();
    if (stop && stop.name === first && last !== first) return found;
    if (stop) found.set(stop.name, stop.wrong);
    last = stop?.name;
    await window.keyboard.press('Tab');
  }
  return found;
}

for (const [size, options] of Object.entries(keyboards)) {
  for (const colorScheme of ['light', 'dark']) {
    test(`the focus is seen at ${size}, ${colorScheme}`, async (t) => {
      const {shown, window} = await pagesIn(t, {...options, colorScheme});
      for (const {page, as, vars, parts} of pages.filter(({parts: {length}}) => length > 0)) {
        await shown.bring(window, page, vars);
        const found = await stops(window);
        for (const {role, name} of parts) if (role === 'button') assert.ok(found.has(name), `${as}: Tab misses "${name}"`);
        const groups = await window.evaluate(() =>
          new Set([...document.querySelectorAll('input[type="radio"]:enabled')].map(({name}) => name)).size);
        const buttons = parts.filter(({role}) => role === 'button').length;
        assert.ok(found.size >= buttons + groups, `${as}: Tab misses choices`);
        for (const [name, wrong] of found) assert.deepEqual(wrong, [], `${as}: the focus on "${name}"`);
      }
    });
  }
}
