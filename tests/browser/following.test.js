// A browser follows the screen: other pages, other browsers, other programs.

import assert from 'node:assert/strict';
import {createRequire} from 'node:module';
import {after, before, test} from 'node:test';
import {close, launch, open, onScreen, Pages, pagesIn, rest, sizes, stop, waitUntil} from './support.js';

const jsQR = createRequire(import.meta.url)('jsqr');

before(launch);
after(close);

test('pages come without reloading and without shifting', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await window.evaluate(() => {
    globalThis.shift = 0;
    const add = (entries) => { for (const {value} of entries) globalThis.shift += value; };
    globalThis.observer = new PerformanceObserver((list) => add(list.getEntries()));
    globalThis.observer.observe({type: 'layout-shift', buffered: true});
    // After two frames the last page has been laid out and painted, and what shifted been noted.
    globalThis.shiftOfAll = async () => {
      for (let frames = 0; frames < 2; ++frames) await new Promise(requestAnimationFrame);
      add(globalThis.observer.takeRecords());
      return globalThis.shift;
    };
  });
  for (const text of ['Checking network.', 'A text of more than one line, as it may well come.']) {
    await shown.showAsync('wait.html', {text});
    await window.getByText(text).first().waitFor();
  }
  for (const message of ['', 'one', 'Loading the second of many packages, which takes two lines']) {
    await shown.showAsync('download-ddl.html', {portname: 'USB', message});
    await window.locator('.message', {hasText: message || 'Waiting'}).waitFor();
  }
  await shown.show('download.html');
  await onScreen(window, 'download.html');
  assert.equal(await window.evaluate(() => globalThis.shiftOfAll()), 0);  // fails after a reload
});

test('the title and what is read out follow the page', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.showAsync('wait.html', {text: 'Checking network.'});
  await onScreen(window, 'wait.html');
  assert.equal(await window.title(), 'Please wait');
  assert.equal(await window.locator('[aria-live="polite"]').first().textContent(), 'Checking network.');
  await shown.show('result.html', {text: "<span style='color:#f00'><b>Error:</b></span><br>Cannot fetch terminal IP address."});
  await onScreen(window, 'result.html');
  const urgent = await window.locator('[aria-live="assertive"]').textContent();
  assert.match(urgent, /Error:\s+Cannot fetch/);
});

test('a second browser sees the page of the moment; one press counts', async (t) => {
  const {shown, window, url} = await pagesIn(t);
  const second = await open(t, url, sizes.upright);
  await onScreen(second, 'mainmenu.html');
  await Promise.all([window.keyboard.press('2'), second.keyboard.press('1')]);
  const {result} = await shown.returned('mainmenu.html');
  assert.ok([1, 2].includes(result));
  await second.locator('#screen[aria-busy="true"]').waitFor();
  await shown.show('info.html', {uiVersion: '1', sponsorId: '2', serialNo: '3'});
  for (const one of [window, second]) await onScreen(one, 'info.html');
  assert.deepEqual(shown.told.filter(({returned}) => returned), []);
});

test('a press that is too late has no effect', async (t) => {
  const {shown, window} = await pagesIn(t);
  const stale = await window.locator('#screen').getAttribute('data-id');
  await shown.show('download.html');
  await onScreen(window, 'download.html');
  const status = await window.evaluate(async (id) => (await fetch(`/api/screen/${id}/result`, {
    method: 'POST', headers: {'Content-Type': 'application/json'}, body: '{"result":1}'})).status, stale);
  assert.equal(status, 409);
  await window.keyboard.press('3');
  assert.equal((await shown.returned('download.html')).result, 3);
});

test('without JavaScript a sentence says what is needed', async (t) => {
  const {url} = await pagesIn(t);
  const window = await open(t, url, {...sizes.upright, javaScriptEnabled: false});
  const sentence = window.locator('noscript');
  assert.match(await sentence.innerText(), /needs JavaScript/);
  const {y, height} = await sentence.boundingBox();
  assert.ok(y >= 0 && height > 0 && y < sizes.upright.viewport.height);
});

const markup = `</section></dl></ul></form><script>globalThis.ran = 1</script><img src=x onerror="globalThis.ran = 1">` +
  `<button data-result="1" data-key="9" data-auto-result="1">evil</button><style>h1{display:none}</style>&lt;b&gt;`;

const carriers = [
  ['wait.html', {text: `Connect to gateway:<div class='text_nowrap_tick'>${markup}</div>`}],
  ['result.html', {text: `<span style='color:#0f0'><b>Cloud reachable</b></span><br><b>Gateway:</b>` +
    `<div class='text_nowrap_tick'>${markup}</div>`}],
  ['info.html', {uiVersion: markup, sponsorId: markup, serialNo: markup}],
  ['prx-info.html', {version: markup, device_type: markup, auth_ex_support: markup}],
  ['settings.html', {loglevel: markup}],
  ['mainmenu.html', {show_settings: markup, show_cloudproxy: markup}],
  ['download-ddl.html', {portname: markup, message: markup}],
  ['download-http.html', {url_list: JSON.stringify([{if_name: markup, url: markup}])}],
  ['prx-settings.html', {cloud_env: markup, cert: markup, auth_ex_support: '1',
    cloud_env_list: JSON.stringify([{name: markup, certs: [markup]}])}],
];

test('markup in variables is shown, not obeyed', async (t) => {
  const {shown, window} = await pagesIn(t);
  for (const [page, vars] of carriers) {
    if (page === 'wait.html') await shown.showAsync(page, vars);
    else await shown.show(page, vars);
    await onScreen(window, page);
    const found = await window.evaluate(() => ({
      ran: globalThis.ran,
      elements: document.querySelectorAll('#screen :is(script, img, style, [data-key="9"], [data-auto-result])').length,
      heading: document.querySelector('h1').checkVisibility(),
    }));
    assert.deepEqual(found, {ran: undefined, elements: 0, heading: true}, page);
    await window.keyboard.press('9');
    assert.equal(await window.locator('#screen').getAttribute('aria-busy'), 'false', page);
  }
});

test('the messages of the program have their kinds', async (t) => {
  const {shown, window} = await pagesIn(t);
  await shown.show('result.html', {text: "<span style='color:#0f0'><b>Cloud reachable</b></span><br>plain<br>" +
    "<span style='color:#f00'>Warning: not signed<br></span><span style='color:#f00'>Error: bad &lt;b&gt;<br></span>" +
    "<span style='color:#0a0'>List of installed applications:<br></span>"});
  await onScreen(window, 'result.html');
  const kinds = await window.locator('.message > span').evaluateAll((spans) => spans.map((span) => [
    span.className, span.innerText.trim(), getComputedStyle(span, '::before').maskImage.slice(0, 9)]));
  assert.deepEqual(kinds, [['good', 'Cloud reachable', 'url("data'], ['warn', 'Warning: not signed', 'url("data'],
    ['bad', 'Error: bad <b>', 'url("data'], ['list', 'List of installed applications:', 'none']]);
  const signs = await window.locator('.message > span:not(.list)')
    .evaluateAll((spans) => new Set(spans.map((span) => getComputedStyle(span, '::before').maskImage)).size);
  assert.equal(signs, 3);
  const colours = await window.locator('.message > :is(.warn, .bad)')
    .evaluateAll((spans) => new Set(spans.map((span) => getComputedStyle(span).color)).size);
  assert.equal(colours, 1);
});

const host = 'gateway-europe-west-1.terminals.payments.example.net';
const gateway = (name) => ({text: `Connect to gateway:<div class='text_nowrap_tick'>${name}</div>`});

test('only a name that is too long ticks', async (t) => {
  const {shown, window} = await pagesIn(t, sizes.upright);
  await shown.showAsync('wait.html', gateway('gw.example'));
  await window.getByText('gw.example').first().waitFor();
  assert.equal(await window.locator('.tick').count(), 0);
  await shown.showAsync('wait.html', gateway(host));
  await window.locator('.tick', {hasText: host}).waitFor();
  const line = window.locator('.text_nowrap_tick');
  const startedAt = await line.evaluate((element) => element.firstChild.getBoundingClientRect().left);
  await waitUntil('the name moves', () =>
    line.evaluate((element, left) => element.firstChild.getBoundingClientRect().left < left - 5, startedAt));
});

test('without motion a long name is broken into lines instead', async (t) => {
  const {shown, window} = await pagesIn(t, {...sizes.upright, reducedMotion: 'reduce'});
  await shown.showAsync('wait.html', gateway(host));
  await window.getByText(host).first().waitFor();
  assert.equal(await window.locator('.tick').count(), 0);
  const {width, lines} = await window.locator('.text_nowrap_tick').evaluate((element) => ({
    width: element.scrollWidth - element.clientWidth,
    lines: Math.round(element.clientHeight / parseFloat(getComputedStyle(element).lineHeight)),
  }));
  assert.equal(width, 0);
  assert.ok(lines > 1);
});

// What a scanner reads off the picture of `element`.
async function scan(window, element, blank) {
  const png = (await window.screenshot({clip: await element.boundingBox()})).toString('base64');
  const {data, width, height} = await blank.evaluate(async (base64) => {
    const image = new Image();
    image.src = `data:image/png;base64,${base64}`;
    await image.decode();
    const canvas = new OffscreenCanvas(image.width, image.height);
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0);
    const pixels = context.getImageData(0, 0, image.width, image.height).data;
    return {data: [...pixels], width: image.width, height: image.height};
  }, png);
  return jsQR(Uint8ClampedArray.from(data), width, height)?.data;
}

for (const [name, options] of Object.entries(sizes)) {
  for (const colorScheme of ['light', 'dark']) {
    test(`the addresses can be scanned at ${name}, ${colorScheme}`, async (t) => {
      const {shown, window} = await pagesIn(t, {...options, colorScheme});
      const blank = await window.context().newPage();
      const urls = ['http://192.168.100.200:6370', 'http://[2001:db8:85a3:1234:5678:8a2e:370:7334]:6370'];
      await shown.showAsync('download-http.html',
        {url_list: JSON.stringify(urls.map((url, i) => ({if_name: `eth${i}`, url})))});
      await onScreen(window, 'download-http.html');
      await window.getByText('2 addresses lead here').waitFor();
      for (const [i, url] of urls.entries()) {
        await rest(window);
        await window.locator('label').nth(i).click();
        const code = window.locator('.qr:visible');
        assert.equal(await scan(window, code, blank), url);
        const {y, height} = await code.boundingBox();
        assert.ok(y + height <= options.viewport.height, `the code of address ${i + 1} is seen whole`);
      }
    });
  }
}

test('a window that stays open finds the program again', async (t) => {
  const {root, shown, window, url} = await pagesIn(t);
  await window.evaluate(() => { globalThis.mark = 1; });
  await stop(shown.child, 'SIGKILL');
  await window.getByText('No connection. Trying again.').waitFor();
  assert.equal(await window.locator('#screen').evaluate((main) => main.inert), true);
  await window.keyboard.press('1');
  const again = new Pages(t, root, {JXPLATFORM_SCREEN: new URL(url).host});
  await again.show('download.html');
  await onScreen(window, 'download.html');
  await window.getByText('No connection. Trying again.').waitFor({state: 'detached'})
    .catch(() => assert.fail('the note of the lost connection stays'));
  await window.keyboard.press('2');
  assert.equal((await again.returned('download.html')).result, 2);
  assert.equal(await window.evaluate(() => globalThis.mark), 1, 'the window was not reloaded');
});

test('a press while the connection is lost can be repeated when it is back', async (t) => {
  const {shown, window} = await pagesIn(t);
  await window.route('**/result', (route) => route.abort());
  await Promise.all([window.waitForEvent('requestfailed'), window.keyboard.press('1')]);
  await window.unroute('**/result');
  await window.locator('#screen[aria-busy="false"]').waitFor();
  await window.keyboard.press('2');
  assert.equal((await shown.returned('mainmenu.html')).result, 2);
});
