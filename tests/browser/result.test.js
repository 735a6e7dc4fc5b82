// The result page: its first line says what happened, worked out from the log; what went wrong stands first.

import assert from 'node:assert/strict';
import {after, before, test} from 'node:test';
import {installLog} from './page_table.js';
import {close, launch, onScreen, pagesIn, rest, sizes} from './support.js';

before(launch);
after(close);

const received = "<span style='color:#0f0'><b>Download successful</b></span><br>";
const red = (line) => `<span style='color:#f00'>${line}<br></span>`;
const applications = (...names) =>
  `<span style='color:#0a0'>List of installed applications:<br>${names.map((name) => `  ${name}<br>`).join('')}</span>`;
const digest = '2c26b46b68ffc68ff99b453c1d30413413422d706483bfa0f98a5e886266e7ae';
const packageLine = (n) => `Package upload-${n}.zip: 48213 bytes, sha256 ${digest}<br>`;

async function shows(t, text, options = sizes.lying) {
  const {shown, window} = await pagesIn(t, options);
  await shown.show('result.html', {text});
  await onScreen(window, 'result.html');
  const lines = (within) => window.locator(`.message ${within} > li`).allInnerTexts();
  return {shown, window, lines};
}

// Whether the text of `one` is larger than that of `other`.
async function larger(one, other) {
  const size = (locator) => locator.evaluate((element) => parseFloat(getComputedStyle(element).fontSize));
  return await size(one) > await size(other);
}

const verdicts = [
  ['1 installed', 'good', packageLine(0) + 'Installed hello 1.0.0<br>' + applications('hello 1.0.0')],
  ['1 installed, 1 updated, 2 reinstalled', 'good', 'Installed a 1<br>Reinstalled b 1<br>Updated c 1 -&gt; 2<br>Reinstalled d 1<br>'],
  ['1 installed, 2 removed', 'good', 'Removed a<br>Installed b 1<br>Removed c<br>'],
  ['Nothing installed', 'bad', red('Warning: a is not installed, nothing was removed')],
  ['1 updated, 1 refused', 'bad', 'Updated c 1 -&gt; 2<br>' + red('Error: upload-1.zip: the archive is cut off')],
  ['Nothing installed, 2 refused', 'bad', red('Error: upload-0.zip: no') + red('Error: upload-1.zip: no') + applications('a 1')],
  ['Nothing installed, 1 error', 'bad', red('Error: the source directory cannot be read: no such file')],
  ['1 installed, 2 errors', 'bad', 'Installed a 1<br>' + red('Error: one') + red('Error: two')],
  ['Nothing installed', 'bad', applications('(none)')],
  ['Nothing installed', 'bad', ''],
];

for (const [verdict, kind, log] of verdicts) {
  test(`the verdict "${verdict}" comes first, as ${kind}`, async (t) => {
    const {window} = await shows(t, received + log);
    const first = window.locator('.message').locator('p').first();
    assert.equal((await first.innerText()).trim(), verdict);
    assert.match(await first.getAttribute('class'), new RegExp(`\\b${kind}\\b`));
    if (verdict.startsWith('Nothing')) assert.equal(await window.locator('.good').count(), 0);
  });
}

test('errors stand before warnings, these before what was done and the list; sizes and digests are folded', async (t) => {
  const {window, lines} = await shows(t, installLog);
  assert.deepEqual(await lines('[data-announce] > ul'),
    ['Error: upload-1.zip: "../evil" leads outside of the application\'s folder']);
  assert.deepEqual(await window.locator('.log > ul > li').allInnerTexts(), ['Warning: hello 1.0.0 is not signed',
    'Updated hello 0.9.0 -> 1.0.0', 'List of installed applications:', '  hello 1.0.0', '  parking 2.4.1']);
  const folded = window.locator('details li');
  assert.equal(await folded.isVisible(), false);
  await rest(window);
  await window.locator('summary').tap();
  assert.match(await folded.innerText(), new RegExp(`48213 bytes, sha256 ${digest}$`));
});

test('only what went wrong is announced at once', async (t) => {
  for (const [log, politeness] of [[installLog, 'assertive'], [received + 'Installed a 1<br>' + red('Warning: b'), 'polite']]) {
    const {window} = await shows(t, log);
    const said = await window.locator(`[aria-live="${politeness}"]`).evaluateAll((all) => all.map(({textContent}) => textContent).join(''));
    assert.match(said, politeness === 'assertive' ? /Error: upload-1/ : /^1 installed/);
    assert.doesNotMatch(said, /Warning|sha256|List of/);
  }
});

test('of a log of 120 packages the error is seen at once, and its ends are one press away', async (t) => {
  const many = Array.from({length: 120}, (_, i) => `${packageLine(i)}Installed app${i} 1.0<br>`).join('');
  const log = received + many + red('Error: upload-120.zip: does not match its digest in manifest.json') +
    applications(...Array.from({length: 120}, (_, i) => `app${i} 1.0`));
  for (const options of Object.values(sizes)) {
    const {window} = await shows(t, log, options);
    const seen = (locator) => locator.evaluate((element) => {
      const {top, bottom} = element.getBoundingClientRect();
      const content = document.querySelector('.content').getBoundingClientRect();
      return top >= content.top && bottom <= content.bottom;
    });
    const error = window.locator('li.bad');
    assert.ok(await seen(error));
    assert.ok(await larger(error, error.locator('small')));
    await window.getByText('362 lines', {exact: true}).waitFor();
    for (const [press, wanted] of [['Last', 'li.list >> nth=-1'], ['First', 'li.bad']]) {
      await rest(window);
      await window.getByRole('button', {name: press, exact: true}).click();
      assert.ok(await seen(window.locator(wanted)), press);
    }
    for (const [key, wanted] of [['End', 'li.list >> nth=-1'], ['Home', 'li.bad']]) {
      await rest(window);
      await window.keyboard.press(key);
      assert.ok(await seen(window.locator(wanted)), key);
    }
  }
});

for (const [code, advice] of [[-1, /Check the cable/], [-3, /fell silent/], [-4, /1024 bytes/], [-5, /room/]]) {
  test(`under "COM1 download failed ${code}." stands what it means and what to do`, async (t) => {
    const {window} = await shows(t, `<span style='color:#f00'><b>Error:</b></span><br>COM1 download failed ${code}.`);
    assert.match(await window.locator('.message').innerText(), new RegExp(`COM1 download failed ${code}\\.`));
    assert.match(await window.locator('.advice').innerText(), advice);
  });
}

test('an error is larger than the word "Error:"', async (t) => {
  const {window} = await shows(t, "<span style='color:#f00'><b>Error:</b></span><br>Cannot read settings.");
  assert.ok(await larger(window.locator('.message'), window.getByText('Error:', {exact: true}).locator('visible=true').last()));
});

test('a code that is not known, and a text of another kind, have no advice', async (t) => {
  for (const text of ['COM1 download failed 5.', 'COM1 download failed -3. And more.', 'Cannot read settings.']) {
    const {window} = await shows(t, `<span style='color:#f00'><b>Error:</b></span><br>${text}`);
    assert.equal(await window.locator('.advice').count(), 0);
  }
});
