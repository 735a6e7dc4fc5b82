// The ways in which an operator works the pages, each on every display on which it must do.

import {sizes} from './support.js';

export const button = (window, name) => window.getByRole('button', {name, exact: true});

const radio = (name, value) => `input[type="radio"][name="${name}"][value="${value}"]:visible`;
const label = (window, name, value) => window.locator(`label:has(${radio(name, value)})`);
const hasFocus = (locator) => locator.evaluate((element) => element === document.activeElement);

// Presses `key` until `isThere`, at most as often as there can be parts on a page.
async function pressUntil(window, key, what, isThere) {
  for (let presses = 0; presses < 20; ++presses) {
    if (await isThere()) return;
    await window.keyboard.press(key);
  }
  throw new Error(`${key} does not lead to ${what}`);
}

// `press` presses the button of that name, `choose` takes the choice of that value; `pointers` is what the page sees of it.
const ways = {
  touch: {
    pointers: ['touch'],
    press: (window, name) => button(window, name).tap(),
    choose: (window, name, value) => label(window, name, value).tap(),
  },
  mouse: {
    pointers: ['mouse'],
    press: (window, name) => button(window, name).click(),
    choose: (window, name, value) => label(window, name, value).click(),
  },
  keys: {
    pointers: [],
    press: async (window, name) => {
      await pressUntil(window, 'Tab', `"${name}"`, () => hasFocus(button(window, name)));
      await window.keyboard.press('Enter');
    },
    choose: async (window, name, value) => {
      const isOfGroup = () => window.evaluate((group) => document.activeElement.name === group, name);
      await pressUntil(window, 'Tab', `the choices of ${name}`, isOfGroup);
      await pressUntil(window, 'ArrowDown', `"${value}"`, () => window.locator(radio(name, value)).isChecked());
    },
  },
};

// The windows of one way: a display that is touched, or one that is not, and for mouse and keys a PC as well.
function displays(way) {
  const {upright, lying, pc} = sizes;
  if (way === 'touch') return {upright, lying};
  return {upright: {viewport: upright.viewport}, lying: {viewport: lying.viewport}, pc};
}

// Everybody who works the pages: {by: "touch, upright", options of the window, pointers, press, choose}.
export const operators = Object.entries(ways).flatMap(([way, acts]) =>
  Object.entries(displays(way)).map(([size, options]) => ({by: `${way}, ${size}`, options, ...acts})));

// The windows for keys alone, by size.
export const keyboards = displays('keys');
