// Settings, downloads and the installation: what their pages make of the variables and of what happens meanwhile.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {environments, proxyVars} from './page_table.js';
import {close, launch, onScreen, pagesIn, rest, sizes, waitUntil} from './support.js';
import {button} from './ways.js';

before(launch);
after(close);

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

test('proxy settings: an environment that is not in the list is named, and nothing is saved until another is chosen', async (t) => {
  const page = await proxySettings(t, {...proxyVars, cloud_env: 'gone', cert: ''});
  assert.deepEqual(await page.choices('cert'), []);
  await page.window.getByText('Now: gone, which the proxy does not offer.').waitFor();
  assert.ok(await button(page.window, 'Save').isDisabled());
  await page.window.keyboard.press('Enter');
  await page.choose('cloud_env', 'prod');
  await rest(page.window);
  assert.deepEqual(await page.save(), {cloud_env: 'prod', cert: 'auth-ex'});
});

for (const size of ['upright', 'lying']) {
  test(`proxy settings: with ten environments both choices and Save are in sight, ${size}`, async (t) => {
    const names = Array.from({length: 10}, (_, i) => `environment-${i}`);
    const list = names.map((name) => ({name, certs: ['auth-ex', 'jx-basic']}));
    const page = await proxySettings(t, {...proxyVars, cloud_env: names[8], cloud_env_list: JSON.stringify(list)}, sizes[size]);
    const inSight = (locator) => locator.evaluate((element) => {
      const {top, bottom, left, right} = element.getBoundingClientRect();
      const box = element.closest('fieldset')?.getBoundingClientRect() ?? {top: 0, bottom: innerHeight};
      return top >= Math.max(0, box.top) && bottom <= Math.min(innerHeight, box.bottom) && left >= 0 && right <= innerWidth;
    });
    const choice = (name, value) => page.window.locator(`label:has(input[name="${name}"][value="${value}"]:visible)`);
    assert.ok(await inSight(choice('cloud_env', names[8])), 'the environment');
    assert.ok(await inSight(choice('cert', 'jx-basic')), 'the certificate');
    assert.ok(await inSight(button(page.window, 'Save')), 'Save');
  });
}

for (const list of ['', 'null', '{}', '[]', '[1', '"text"']) {
  test(`proxy settings: the list ${list} offers nothing and can be left`, async (t) => {
    const page = await proxySettings(t, {...proxyVars, cloud_env_list: list}, {...sizes.pc, hasTouch: true});
    assert.deepEqual(await page.choices('cloud_env'), []);
    await page.window.getByText('The proxy offers none.').waitFor();
    assert.ok(await button(page.window, 'Save').isDisabled());
    await page.window.keyboard.press('Escape');
    assert.equal((await page.shown.returned('prx-settings.html')).result, -1);
  });
}

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

// What the browser returns, whether or not the terminal has gone on without it by then.
const pressed = async (window) => {
  const request = await window.waitForRequest((one) => one.url().endsWith('/result'));
  return request.postDataJSON();
};

test('installing: the page returns by itself and stays busy', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.lying);
  const press = pressed(window);
  await shown.show('install-ddl.html');
  assert.deepEqual(await press, {result: 0, vars: {}});
  assert.deepEqual(await shown.returned('install-ddl.html'), {returned: 'install-ddl.html', result: 0, vars: {}});
  assert.equal(await window.locator('#screen').getAttribute('aria-busy'), 'true');
});

test('installing: a window that is not seen lets it go on, too', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.pc);
  await window.evaluate(() => { globalThis.requestAnimationFrame = () => 0; });
  const press = pressed(window);
  await shown.show('install-ddl.html');
  assert.deepEqual(await press, {result: 0, vars: {}});
});
