// Every page's results: by touch, by mouse and by keys, on every display.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {installLog, proxyVars} from './page_table.js';
import {close, launch, pagesIn, onScreen, rest, sizes} from './support.js';
import {keyboards, operators} from './ways.js';

before(launch);
after(close);

const everything = {show_settings: '1', show_cloudproxy: '1'};
const proxyOnly = {show_settings: '0', show_cloudproxy: '1'};
const oneUrl = {url_list: '[{"if_name":"eth0","url":"http://192.168.1.20:6370"}]'};

const buttons = [
  ['mainmenu.html', everything, {'Exit Leave': -1, '1 Download': 1, '2 Information': 2, '3 Log level': 3, '4 Cloud proxy': 4}],
  ['mainmenu.html', proxyOnly, {'3 Cloud proxy': 4}],
  ['download.html', {}, {'Back': -1, '1 HTTP': 1, '2 USB': 2, '3 COM1': 3, '4 COM2': 4}],
  ['cloudproxy.html', {}, {'Back': -1, '1 Information': 1, '2 Settings': 2, '3 Check connection': 3}],
  ['info.html', {}, {'Back': -1}],
  ['prx-info.html', {}, {'Back': -1}],
  ['result.html', {text: installLog}, {'OK': 0}],
  ['settings.html', {loglevel: '3'}, {'Back': -1, 'Save': 0}],
  ['prx-settings.html', proxyVars, {'Back': -1, 'Save': 0}],
  ['download-http.html', oneUrl, {'Stop': -1}],
  ['download-ddl.html', {portname: 'COM2'}, {'Abort': 1}],
];

// The buttons that lead to one result: Exit asks first.
const parts = (name) => (name === 'Exit Leave' ? ['Exit', 'Leave'] : [name]);

// Fills with the kinds of pointers that press anything in `window`.
async function pointersIn(window) {
  const seen = new Set();
  await window.exposeFunction('jxPointer', (kind) => { seen.add(kind); });
  await window.evaluate(() => addEventListener('pointerdown', ({pointerType}) => globalThis.jxPointer(pointerType), true));
  return seen;
}

for (const {by, options, pointers, press, choose} of operators) {
  test(`each button returns its value, by ${by}`, async (t) => {
    const {shown, window} = await pagesIn(t, options);
    const seen = await pointersIn(window);
    for (const [page, vars, entries] of buttons) {
      for (const [name, result] of Object.entries(entries)) {
        await shown.bring(window, page, vars);
        for (const part of parts(name)) {
          await rest(window);
          await press(window, part);
        }
        const {result: returned, vars: handed = vars} = await shown.returned(page);
        assert.deepEqual([returned, handed], [result, vars], `${page}: ${name}`);
      }
    }
    assert.deepEqual([...seen], pointers);
  });

  test(`what is chosen is handed back when it is saved, by ${by}`, async (t) => {
    const {shown, window} = await pagesIn(t, options);
    for (const [name, result, loglevel] of [['Save', 0, '7'], ['Back', -1, '3']]) {
      await shown.bring(window, 'settings.html', {loglevel: '3'});
      assert.equal(await window.getByRole('radio', {checked: true}).inputValue(), '3');
      await choose(window, 'loglevel', '7');
      await rest(window);
      await press(window, name);
      assert.deepEqual(await shown.returned('settings.html'), {returned: 'settings.html', result, vars: {loglevel}}, name);
    }
    await shown.bring(window, 'prx-settings.html', {...proxyVars, cloud_env: 'prod', cert: 'auth-ex'});
    await choose(window, 'cloud_env', 'test');
    await rest(window);
    await choose(window, 'cert', 'jx-basic');
    await rest(window);
    await press(window, 'Save');
    assert.deepEqual(await shown.returned('prx-settings.html'), {returned: 'prx-settings.html', result: 0, vars: proxyVars});
  });
}

// Page, variables, and what keys return of them: the result and, where they are not the same, the variables.
const keys = [
  ['mainmenu.html', everything, [['1', 1], ['2', 2], ['3', 3], ['4', 4], ['Escape ArrowUp Enter', -1], ['Enter', 1], ['Tab Enter', 2],
    ['Tab Tab Tab Space', 4], ['Escape Escape 2', 2], ['Shift+Tab Enter Shift+Tab Enter', -1]]],
  ['mainmenu.html', proxyOnly, [['3', 4], ['4', 4], ['Tab Tab Enter', 4]]],
  ['download.html', {}, [['1', 1], ['2', 2], ['3', 3], ['4', 4], ['Escape', -1], ['Enter', 1], ['Tab Tab Enter', 3],
    ['ArrowDown Enter', 2], ['ArrowUp Enter', 4], ['Tab ArrowDown Enter', 3], ['Shift+Tab Enter', -1]]],
  ['cloudproxy.html', {}, [['1', 1], ['2', 2], ['3', 3], ['Escape', -1], ['Enter', 1], ['Tab Enter', 2],
    ['ArrowDown ArrowDown Enter', 3]]],
  ['info.html', {}, [['Escape', -1], ['Enter', -1]]],
  ['prx-info.html', {}, [['Escape', -1], ['Enter', -1]]],
  ['result.html', {text: installLog}, [['Enter', 0], ['Escape', 0]]],
  ['settings.html', {loglevel: '3'}, [['Enter', 0], ['6 ArrowRight Enter', 0, {loglevel: '7'}], ['0 Tab Enter', 0, {loglevel: '0'}],
    ['8 Escape', -1], ['Shift+Tab Enter', -1]]],
  ['prx-settings.html', proxyVars, [['Enter', 0], ['ArrowUp Enter', 0, {...proxyVars, cloud_env: 'prod', cert: 'auth-ex'}],
    ['Tab ArrowUp Tab Enter', 0, {...proxyVars, cert: 'auth-ex'}], ['ArrowDown Escape', -1], ['Shift+Tab Enter', -1]]],
  ['download-http.html', oneUrl, [['Enter', -1], ['Escape', -1]]],
  ['download-ddl.html', {portname: 'USB'}, [['Enter', 1], ['Escape', 1]]],
];

for (const [size, options] of Object.entries(keyboards)) {
  test(`digits choose, Enter accepts, Escape leaves and Tab moves, at ${size}`, async (t) => {
    const {shown, window} = await pagesIn(t, options);
    for (const [page, vars, presses] of keys) {
      for (const [sequence, result, changed = vars] of presses) {
        await window.reload();  // no menu remembers what was chosen in it
        await shown.bring(window, page, vars);
        for (const key of sequence.split(' ')) {
          await rest(window);
          await window.keyboard.press(key);
        }
        const {result: returned, vars: handed = vars} = await shown.returned(page);
        assert.deepEqual([returned, handed], [result, changed], `${page}: ${sequence}`);
      }
    }
  });
}

test('a digit without an entry does nothing', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await shown.show('mainmenu.html', {show_settings: '0', show_cloudproxy: '0'});
  await onScreen(window, 'mainmenu.html');
  for (const digit of ['3', '4', '2']) {
    await rest(window);
    await window.keyboard.press(digit);
  }
  assert.equal((await shown.returned('mainmenu.html')).result, 2);
});
