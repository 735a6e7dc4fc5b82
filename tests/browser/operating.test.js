// Every page's results: by touch, by mouse and by keys.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {environments, installLog} from './page_table.js';
import {close, launch, open, onScreen, Pages, scratch, sizes, waitUntil} from './support.js';

before(launch);
after(close);

const button = (window, name) => window.getByRole('button', {name, exact: true});

const ways = {
  touch: {window: sizes.upright, press: (window, name) => button(window, name).tap()},
  mouse: {window: sizes.lying, press: (window, name) => button(window, name).click()},
  tabs: {window: sizes.pc, press: tabTo},
};

async function tabTo(window, name) {
  for (let steps = 0; steps < 20; ++steps) {
    if (await button(window, name).evaluate((element) => element === document.activeElement)) {
      return window.keyboard.press('Enter');
    }
    await window.keyboard.press('Tab');
  }
  throw new Error(`"${name}" cannot be reached by the tabulator key`);
}

async function pagesIn(t, options) {
  const shown = new Pages(t, scratch(t));
  await shown.show('mainmenu.html', {show_settings: '1', show_cloudproxy: '1'});
  const window = await open(t, await shown.url(), options);
  await onScreen(window, 'mainmenu.html');
  return {shown, window};
}

const everything = {show_settings: '1', show_cloudproxy: '1'};
const proxyOnly = {show_settings: '0', show_cloudproxy: '1'};

const menus = [
  ['mainmenu.html', everything, {'Exit': -1, '1 Download': 1, '2 Information': 2, '3 Log level': 3, '4 Cloud proxy': 4}],
  ['mainmenu.html', proxyOnly, {'3 Cloud proxy': 4}],
  ['download.html', {}, {'Back': -1, '1 HTTP': 1, '2 USB': 2, '3 COM1': 3, '4 COM2': 4}],
  ['cloudproxy.html', {}, {'Back': -1, '1 Information': 1, '2 Settings': 2, '3 Check connection': 3}],
  ['info.html', {}, {'Back': -1}],
  ['prx-info.html', {}, {'Back': -1}],
  ['result.html', {text: installLog}, {'OK': 0}],
];

for (const [way, {window: options, press}] of Object.entries(ways)) {
  test(`menus by ${way}: each entry returns its value`, async (t) => {
    const {shown, window} = await pagesIn(t, options);
    for (const [page, vars, entries] of menus) {
      for (const [name, result] of Object.entries(entries)) {
        await shown.show(page, vars);
        await onScreen(window, page);
        await press(window, name);
        assert.deepEqual(await shown.returned(page), {returned: page, result, vars}, `${page}: ${name}`);
      }
    }
    assert.deepEqual(window.problems, []);
  });
}

const keys = [
  ['mainmenu.html', everything, [['1', 1], ['2', 2], ['3', 3], ['4', 4], ['Escape', -1], ['Enter', 1]]],
  ['mainmenu.html', proxyOnly, [['3', 4], ['4', 4]]],
  ['download.html', {}, [['1', 1], ['4', 4], ['Escape', -1], ['Enter', 1], ['ArrowDown Enter', 2], ['ArrowUp Enter', 4]]],
  ['cloudproxy.html', {}, [['2', 2], ['Escape', -1], ['ArrowDown ArrowDown Enter', 3]]],
  ['info.html', {}, [['Escape', -1], ['Enter', -1]]],
  ['prx-info.html', {}, [['Escape', -1]]],
  ['result.html', {text: installLog}, [['Enter', 0], ['Escape', 0]]],
];

test('keys: digits choose, Enter accepts, Escape leaves', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  for (const [page, vars, presses] of keys) {
    for (const [sequence, result] of presses) {
      await shown.show(page, vars);
      await onScreen(window, page);
      for (const key of sequence.split(' ')) await window.keyboard.press(key);
      assert.equal((await shown.returned(page)).result, result, `${page}: ${sequence}`);
    }
  }
});

test('a digit without an entry does nothing', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await shown.show('mainmenu.html', {show_settings: '0', show_cloudproxy: '0'});
  await waitUntil('two entries', async () => await window.locator('.menu button').count() === 2);
  await window.keyboard.press('3');
  await window.keyboard.press('4');
  await window.keyboard.press('2');
  await waitUntil('a result', () => shown.told.some(({result}) => result === 2));
});

test('settings by touch: the chosen level is handed back', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await shown.show('settings.html', {loglevel: '3'});
  await onScreen(window, 'settings.html');
  assert.equal(await window.getByRole('radio', {checked: true}).inputValue(), '3');
  await window.locator('label', {hasText: '7'}).tap();
  await button(window, 'Save').tap();
  assert.deepEqual(await shown.returned('settings.html'), {returned: 'settings.html', result: 0, vars: {loglevel: '7'}});
});

test('settings by keys: digits choose, Enter accepts', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await shown.show('settings.html', {loglevel: '3'});
  await onScreen(window, 'settings.html');
  for (const key of ['6', 'ArrowRight', 'Enter']) await window.keyboard.press(key);
  assert.deepEqual(await shown.returned('settings.html'), {returned: 'settings.html', result: 0, vars: {loglevel: '7'}});
});

test('settings left: nothing is handed back', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await shown.show('settings.html', {loglevel: '3'});
  await onScreen(window, 'settings.html');
  for (const key of ['6', 'Escape']) await window.keyboard.press(key);
  assert.deepEqual(await shown.returned('settings.html'), {returned: 'settings.html', result: -1, vars: {loglevel: '3'}});
});

// Shows the proxy's settings and gives a way to look at the choices of one kind: "[x] name" for each.
async function proxySettings(t, vars, options = sizes.upright) {
  const {shown, window} = await pagesIn(t, options);
  await shown.show('prx-settings.html', vars);
  await onScreen(window, 'prx-settings.html');
  const choices = (name) => window.locator(`input[type="radio"][name="${name}"]:visible`)
    .evaluateAll((inputs) => inputs.map((input) => (input.checked ? '[x] ' : '[ ] ') + input.value));
  const choose = (name, value) => window.locator(`label:has(input[name="${name}"][value="${value}"]:visible)`).tap();
  const save = async () => {
    await button(window, 'Save').tap();
    const {result, vars: handed} = await shown.returned('prx-settings.html');
    assert.equal(result, 0);
    return {cloud_env: handed.cloud_env, cert: handed.cert};
  };
  return {shown, window, choices, choose, save};
}

const proxyVars = {cloud_env: 'test', cloud_env_list: environments, auth_ex_support: '1', cert: 'jx-basic'};

test('proxy settings: the certificates are those of the environment', async (t) => {
  const page = await proxySettings(t, proxyVars);
  assert.deepEqual(await page.choices('cloud_env'), ['[ ] prod', '[x] test', '[ ] integration-europe-west']);
  assert.deepEqual(await page.choices('cert'), ['[ ] auth-ex', '[x] jx-basic']);
  await page.choose('cloud_env', 'prod');
  assert.deepEqual(await page.choices('cert'), ['[x] auth-ex']);
  assert.deepEqual(await page.save(), {cloud_env: 'prod', cert: 'auth-ex'});
});

test('proxy settings: another certificate of the same environment', async (t) => {
  const page = await proxySettings(t, proxyVars);
  await page.choose('cert', 'auth-ex');
  assert.deepEqual(await page.save(), {cloud_env: 'test', cert: 'auth-ex'});
});

test('proxy settings: an environment without certificates hands back none', async (t) => {
  const page = await proxySettings(t, {...proxyVars, cert: 'auth-ex'});
  await page.choose('cloud_env', 'integration-europe-west');
  assert.deepEqual(await page.choices('cert'), []);
  assert.deepEqual(await page.save(), {cloud_env: 'integration-europe-west', cert: ''});
});

test('proxy settings: unchanged settings are handed back as they were', async (t) => {
  assert.deepEqual(await (await proxySettings(t, proxyVars)).save(), {cloud_env: 'test', cert: 'jx-basic'});
});

test('proxy settings: a list as the proxy sent it, with other members and none', async (t) => {
  const list = [{name: 'a"b', certs: ['x', 7, 'x']}, {name: 5, certs: []}, 'text', null, {certs: ['y']},
    {name: 'a"b', certs: ['z']}, {name: 'bare'}, {name: '<b>', certs: 'none'}];
  const page = await proxySettings(t, {...proxyVars, cloud_env: 'a"b', cert: 'gone', cloud_env_list: JSON.stringify(list)});
  assert.deepEqual(await page.choices('cloud_env'), ['[x] a"b', '[ ] bare', '[ ] <b>']);
  assert.deepEqual(await page.choices('cert'), ['[x] x']);
  await page.choose('cloud_env', '<b>');
  assert.deepEqual(await page.save(), {cloud_env: '<b>', cert: ''});
});

test('proxy settings: where no certificate can be chosen, the one in use is shown', async (t) => {
  const page = await proxySettings(t, {...proxyVars, auth_ex_support: '0'});
  assert.deepEqual(await page.choices('cert'), ['[x] jx-basic']);
  await page.choose('cloud_env', 'prod');
  assert.deepEqual(await page.choices('cert'), []);
  assert.deepEqual(await page.save(), {cloud_env: 'prod', cert: ''});
});

test('proxy settings: an environment that is not in the list stays unless another is chosen', async (t) => {
  const page = await proxySettings(t, {...proxyVars, cloud_env: 'gone', cert: ''});
  assert.deepEqual(await page.choices('cert'), []);
  assert.deepEqual(await page.save(), {cloud_env: 'gone', cert: ''});
});

for (const list of ['', 'null', '{}', '[]', '[1', '"text"']) {
  test(`proxy settings: the list ${list} offers nothing and can be left`, async (t) => {
    const page = await proxySettings(t, {...proxyVars, cloud_env_list: list}, {...sizes.pc, hasTouch: true});
    assert.deepEqual(await page.choices('cloud_env'), []);
    await page.window.getByText('The proxy offers none.').waitFor();
    await page.window.keyboard.press('Escape');
    assert.equal((await page.shown.returned('prx-settings.html')).result, -1);
  });
}

test('HTTP download: Stop leaves', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await shown.showAsync('download-http.html', {url_list: '[{"if_name":"eth0","url":"http://192.168.1.20:6370"}]'});
  await onScreen(window, 'download-http.html');
  await button(window, 'Stop').tap();
  assert.equal((await shown.returned('download-http.html')).result, -1);
});

test('serial download: Abort returns 1, and a message keeps the focus on it', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.lying);
  await shown.showAsync('download-ddl.html', {portname: 'COM2'});
  await onScreen(window, 'download-ddl.html');
  const abort = await button(window, 'Abort').elementHandle();
  await shown.showAsync('download-ddl.html', {portname: 'COM2', message: 'second <b>message</b>'});
  await window.getByText('second <b>message</b>', {exact: true}).first().waitFor();
  assert.ok(await abort.evaluate((element) => element.isConnected && element === document.activeElement));
  await window.keyboard.press('Enter');
  assert.equal((await shown.returned('download-ddl.html')).result, 1);
});

for (const [when, late] of [['at the same time', false], ['before', true]]) {
  test(`serial download: Abort counts when a message comes ${when}`, async (t) => {
    const {shown, window} = await pagesIn(t, sizes.lying);
    await shown.showAsync('download-ddl.html', {portname: 'COM2'});
    await onScreen(window, 'download-ddl.html');
    const statuses = [];
    window.on('response', (response) => { if (response.url().endsWith('/result')) statuses.push(response.status()); });
    await window.route('**/result', async (route) => {
      await shown.showAsync('download-ddl.html', {portname: 'COM2', message: 'second file'});
      if (late) await window.getByText('second file', {exact: true}).first().waitFor();
      await route.continue();
    }, {times: 1});
    await button(window, 'Abort').tap();
    assert.equal((await shown.returned('download-ddl.html')).result, 1);
    await waitUntil('both answers are there', () => statuses.length === 2);
    assert.deepEqual(statuses, [409, 204]);
  });
}

test('installing: the page returns by itself and stays busy', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.lying);
  await shown.show('install-ddl.html');
  assert.deepEqual(await shown.returned('install-ddl.html'), {returned: 'install-ddl.html', result: 0, vars: {}});
  assert.equal(await window.locator('#screen').getAttribute('aria-busy'), 'true');
});

test('installing: a window that is not seen lets it go on, too', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await window.evaluate(() => { globalThis.requestAnimationFrame = () => 0; });
  await shown.show('install-ddl.html');
  assert.equal((await shown.returned('install-ddl.html')).result, 0);
});
