// Impatient hands: a press is meant for the page that was on screen when it began, and for no page that came since.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {close, launch, onScreen, open, pagesIn, rest, skip, sizes, waitUntil} from './support.js';
import {button} from './ways.js';

before(launch);
after(close);

const menu = {show_settings: '1', show_cloudproxy: '1'};
const question = (window) => window.getByRole('dialog');

// Shows `page` on `window` and waits until it is whole on screen; no time passes for the operator.
async function come(shown, window, page, vars = {}) {
  await shown.showSync(page, vars);
  await window.locator(`#screen[data-page="${page}"][data-settled][aria-busy="false"]`).waitFor();
}

// What has been returned since, and is not known yet.
const returns = (shown) => shown.told.filter(({returned, reported}) => (returned ?? reported) !== undefined);

// Everything that was pressed has had its effect: the page still takes `key`, and returns `result` for it alone.
async function nothingButThis(shown, window, page, key, result) {
  await rest(window);
  await window.keyboard.press(key);
  assert.equal((await shown.returned(page)).result, result);
  assert.deepEqual(returns(shown), []);
}

for (const ms of [0, 200, 399, 400, 600]) {
  test(`a second tap on the same spot after ${ms} ms acts no more`, async (t) => {
    const {shown, window} = await pagesIn(t, sizes.upright);
    await shown.bring(window, 'info.html', {});
    const {x, y, width, height} = await button(window, 'Back').boundingBox();
    const tap = () => window.touchscreen.tap(x + width / 2, y + height / 2);
    await tap();
    await shown.returned('info.html');
    await come(shown, window, 'mainmenu.html', menu);
    await skip(window, ms);
    await tap();
    assert.equal(await question(window).count(), 0);
    await nothingButThis(shown, window, 'mainmenu.html', '2', 2);
  });
}

test('a press elsewhere acts once the page has been there for 400 ms', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await window.keyboard.press('1');
  await shown.returned('mainmenu.html');
  await come(shown, window, 'download.html');
  await skip(window, 399);
  await button(window, '3 COM1').tap();
  await skip(window, 1);
  await window.keyboard.press('4');
  assert.equal((await shown.returned('download.html')).result, 4);
  assert.deepEqual(returns(shown), []);
});

test('taps that go on every half second act once', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.lying);
  await shown.bring(window, 'result.html', {text: 'first'});
  await button(window, 'OK').tap();
  await shown.returned('result.html');
  await come(shown, window, 'result.html', {text: 'second'});
  for (let taps = 0; taps < 4; ++taps) {
    await skip(window, 500);
    await button(window, 'OK').tap();
  }
  await skip(window, 700);
  assert.deepEqual(returns(shown), []);
  await button(window, 'OK').tap();
  assert.equal((await shown.returned('result.html')).result, 0);
});

test('a key that is held acts on the page that it was pressed on', async (t) => {
  const {shown, window} = await pagesIn(t);
  await window.keyboard.down('1');
  await shown.returned('mainmenu.html');
  await come(shown, window, 'download.html');
  await skip(window, 5000);
  for (let repeats = 0; repeats < 3; ++repeats) await window.keyboard.down('1');
  await window.keyboard.press('2');  // another key, while the first is down
  await window.keyboard.up('1');
  await nothingButThis(shown, window, 'download.html', '1', 1);
});

for (const key of ['Enter', 'Space']) {
  test(`${key} that is held on a button acts once`, async (t) => {
    const {shown, window} = await pagesIn(t);
    await shown.bring(window, 'result.html', {text: 'first'});
    await window.keyboard.down(key);
    if (key === 'Space') await window.keyboard.up(key);
    await shown.returned('result.html');
    if (key === 'Space') await window.keyboard.down(key);
    await come(shown, window, 'result.html', {text: 'second'});
    await skip(window, 5000);
    for (let repeats = 0; repeats < 3; ++repeats) await window.keyboard.down(key);
    await window.keyboard.up(key);
    await nothingButThis(shown, window, 'result.html', 'Escape', 0);
  });
}

test('a finger that came down on the page before lifts without effect', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.bring(window, 'download.html');
  const {x, y} = await button(window, '2 USB').boundingBox();
  await window.mouse.move(x + 20, y + 20);
  await window.mouse.down();
  await window.evaluate(() => fetch(`/api/screen/${document.getElementById('screen').dataset.id}/result`,
    {method: 'POST', headers: {'Content-Type': 'application/json'}, body: '{"result":0}'}));
  await shown.returned('download.html');
  await come(shown, window, 'download.html');
  await skip(window, 5000);
  await window.mouse.up();
  await nothingButThis(shown, window, 'download.html', '3', 3);
});

test('a progress page that gets another text takes its press all the same', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.showAsync('download-ddl.html', {portname: 'COM1'});
  await onScreen(window, 'download-ddl.html');
  await shown.showAsync('download-ddl.html', {portname: 'COM1', message: 'second'});
  await window.getByText('second', {exact: true}).first().waitFor();
  await window.keyboard.press('Escape');
  assert.equal((await shown.returned('download-ddl.html')).result, 1);
});

test('a screen reader presses without a finger', async (t) => {
  const {shown, window} = await pagesIn(t);
  await button(window, '2 Information').evaluate((element) => element.click());
  assert.equal((await shown.returned('mainmenu.html')).result, 2);
});

test('Exit asks first; to stay is what has the focus and what Escape does', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.lying);
  await button(window, 'Exit').tap();
  await question(window).waitFor();
  assert.match(await question(window).innerText(), /^Leave\?/);
  assert.ok(await button(window, 'Stay').evaluate((element) => element === document.activeElement));
  await rest(window);
  await window.keyboard.press('Escape');
  await question(window).waitFor({state: 'detached'});
  await rest(window);
  await button(window, 'Exit').tap();
  await rest(window);
  await button(window, 'Leave').tap();
  assert.equal((await shown.returned('mainmenu.html')).result, -1);
});

test('a second tap does not answer the question', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await button(window, 'Exit').tap();
  await question(window).waitFor();
  await button(window, 'Leave').tap();
  assert.equal(await question(window).count(), 1);
  await rest(window);
  await window.keyboard.press('Escape');
  await nothingButThis(shown, window, 'mainmenu.html', '2', 2);
});

test('after a press without an answer the page says that the terminal is busy, until it answers', async (t) => {
  const {shown, window} = await pagesIn(t);
  await window.evaluate(() => { globalThis.hastened[5000] = 1; });
  await window.keyboard.press('1');
  await shown.returned('mainmenu.html');
  await window.getByText('The terminal is busy. Please wait.').waitFor();
  assert.equal(await window.locator('#screen').getAttribute('aria-busy'), 'true');
  await come(shown, window, 'download.html');
  assert.equal(await window.locator('#notice').innerText(), '');
});

test('a page that goes on says that the terminal is busy even when it can be pressed again', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.showAsync('download-ddl.html', {portname: 'COM1'});
  await onScreen(window, 'download-ddl.html');
  await window.evaluate(() => { globalThis.hastened[5000] = 1; });
  await window.keyboard.press('Escape');
  assert.equal((await shown.returned('download-ddl.html')).result, 1);
  await window.locator('#screen[aria-busy="false"]').waitFor();
  await window.getByText('The terminal is busy. Please wait.').waitFor();
});

test('two browsers that press at once: one press counts', async (t) => {
  const {shown, window, url} = await pagesIn(t);
  const second = await open(t, url);
  await onScreen(second, 'mainmenu.html');
  await Promise.all([window.keyboard.press('1'), second.keyboard.press('2')]);
  const {result} = await shown.returned('mainmenu.html');
  assert.ok([1, 2].includes(result));
  await come(shown, window, 'download.html');
  await second.locator('#screen[data-page="download.html"][data-settled]').waitFor();
  assert.deepEqual(returns(shown), []);
});

test('the menu comes back with the entry that was chosen', async (t) => {
  const {shown, window} = await pagesIn(t);
  await window.keyboard.press('3');
  await shown.returned('mainmenu.html');
  await shown.bring(window, 'settings.html', {loglevel: '1'});
  await window.keyboard.press('Escape');
  await shown.returned('settings.html');
  await come(shown, window, 'mainmenu.html', menu);
  await waitUntil('the entry has the focus', () =>
    button(window, '3 Log level').evaluate((element) => element === document.activeElement));
});
