// Pages with what a peer may send at most, about 10 MB: they come, and can be left.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {close, launch, open, onScreen, Pages, scratch, source} from './support.js';

const kSize = 10_000_000;
const repeated = (text) => text.repeat(kSize / text.length);
const environments = Array.from({length: kSize / 40}, (_, i) => ({name: `n${i}`, certs: ['auth-ex', 'jx-basic']}));

before(launch);
after(close);

async function pagesIn(t) {
  const shown = new Pages(t, scratch(t), {JXPLATFORM_PAGES: `${source}/pages`});
  await shown.showAsync('wait.html');
  return {shown, window: await open(t, await shown.url())};
}

test('texts of any length are shown and left', async (t) => {
  const {shown, window} = await pagesIn(t);
  const head = "<span style='color:#f00'><b>Cloud not reachable</b></span><br>";
  for (const piece of ['<script>globalThis.ran = 1</script>', "<div class='text_nowrap_tick'>", '<br>', 'long ']) {
    const text = `${head}${repeated(piece)}<br>500 (no)`;
    await shown.showAsync('wait.html', {text});
    await onScreen(window, 'wait.html');
    await shown.show('result.html', {text});
    await onScreen(window, 'result.html');
    const message = (await window.locator('.message').innerText()).trim();
    assert.ok(message.startsWith('Cloud not reachable') && message.endsWith('500 (no)'), piece);
    assert.equal(await window.evaluate(() => globalThis.ran), undefined);
    await window.getByRole('button', {name: 'OK'}).click();
    assert.equal((await shown.returned('result.html')).result, 0);
  }
});

test('information of any length is shown and left', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.show('prx-info.html', {version: repeated('<'), device_type: 'dev', auth_ex_support: '1'});
  await onScreen(window, 'prx-info.html');
  assert.deepEqual(await window.locator('dd').allInnerTexts(), [`${'<'.repeat(1000)}…`, 'dev', 'supported']);
  await window.getByRole('button', {name: 'Back'}).click();
  assert.equal((await shown.returned('prx-info.html')).result, -1);
});

test('of a list of any length the beginning is offered', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.show('prx-settings.html',
    {cloud_env_list: JSON.stringify(environments), cloud_env: 'n7', cert: 'jx-basic', auth_ex_support: '1'});
  await onScreen(window, 'prx-settings.html');
  await window.getByText('The proxy offers more than can be shown.').waitFor();
  await window.getByLabel('n9', {exact: true}).check();
  await window.getByRole('button', {name: 'Save'}).click();
  const {result, vars} = await shown.returned('prx-settings.html');
  assert.deepEqual([result, vars.cloud_env, vars.cert], [0, 'n9', 'jx-basic']);
});
