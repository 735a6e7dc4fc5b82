// The program itself, operated through its screen.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {existsSync, writeFileSync} from 'node:fs';
import path from 'node:path';
import {after, before, test} from 'node:test';
import {build, close, launch, open, onScreen, scratch, rest, screenUrl, sizes, start, stop} from './support.js';
import {operators} from './ways.js';

before(launch);
after(close);

async function press(window, name) {
  await window.getByRole('button', {name, exact: true}).waitFor();
  await rest(window);
  await window.getByRole('button', {name, exact: true}).tap();
}

// The menu entry of a serial line that this machine has not.
function absentLine() {
  const lines = {'2 USB': '/dev/ttyGS0', '3 COM1': '/dev/ttyAMA0', '4 COM2': '/dev/ttyAMA1'};
  const absent = Object.keys(lines).find((name) => !existsSync(lines[name]));
  assert.ok(absent, 'every serial line exists on this machine');
  return absent;
}

// The program in its main menu, and a touch display that shows it.
async function terminal(t, options = sizes.upright) {
  const root = scratch(t);
  writeFileSync(path.join(root, 'terminal.json'), JSON.stringify({
    serial: '0123456789', gui_version: '7.3', sponsor: {identifier: '0203200821C5', number: 123, name: 'Sponsor'}}));
  const program = start(t, root, {}, 'jxdownloader');
  const window = await open(t, await screenUrl(root), options);
  await onScreen(window, 'mainmenu.html');
  return {root, program, window};
}

for (const {by, options, press: pressBy} of operators) {
  test(`the menus lead into each other and out of the program, by ${by}`, async (t) => {
    const {program, window} = await terminal(t, options);
    const road = [['1 Download', 'download.html'], [absentLine(), 'result.html'], ['OK', 'download.html'], ['Back', 'mainmenu.html'],
      ['2 Information', 'info.html'], ['Back', 'mainmenu.html']];
    for (const [name, page] of road) {
      await pressBy(window, name);
      await onScreen(window, page);
    }
    await pressBy(window, 'Exit');
    await rest(window);
    await pressBy(window, 'Leave');
    assert.deepEqual(await program.ended, [0, null]);
    await window.getByText('No connection. Trying again.').waitFor();
  });
}

test('the information page tells what is known of the terminal', async (t) => {
  const {window} = await terminal(t, {...sizes.lying});
  await window.keyboard.press('2');
  await onScreen(window, 'info.html');
  const facts = await window.locator('dd').allInnerTexts();
  assert.deepEqual(facts, ['0123456789', '000123', '7.3']);
  await window.keyboard.press('Escape');
  await onScreen(window, 'mainmenu.html');
});

test('without a network the HTTP download says so', async (t) => {
  const {window} = await terminal(t);
  await press(window, '1 Download');
  await onScreen(window, 'download.html');
  await press(window, '1 HTTP');
  await window.getByText('Checking network.').first().waitFor();
  await window.locator('.bad', {hasText: 'Error:'}).waitFor();
  assert.match(await window.locator('.message').innerText(), /Cannot fetch terminal IP address\.\s+Network not \(yet\) running\?/);
  await press(window, 'OK');
  await onScreen(window, 'download.html');
});

test('a package is uploaded to the address on the screen', async (t) => {
  execFileSync('ip', ['address', 'add', '192.0.2.7/24', 'dev', 'lo']);
  t.after(() => execFileSync('ip', ['address', 'delete', '192.0.2.7/24', 'dev', 'lo']));
  const {root, window} = await terminal(t);
  await press(window, '1 Download');
  await onScreen(window, 'download.html');
  await press(window, '1 HTTP');
  await onScreen(window, 'download-http.html');
  await window.getByRole('img', {name: 'QR code: http://192.0.2.7:6370'}).waitFor();
  const operator = await open(t, await window.locator('.url').innerText());
  await operator.locator('input[type="file"]').setInputFiles(path.join(build, 'examples/hello-1.0.0.zip'));
  await operator.getByRole('button', {name: 'Upload file'}).click();
  await operator.getByText('Installed hello 1.0.0').waitFor();
  assert.ok(existsSync(path.join(root, 'apps/hello')));
  await press(window, 'Stop');
  await onScreen(window, 'download.html');
});

test('a serial line that is not there is reported', async (t) => {
  const absent = absentLine();
  const {window} = await terminal(t);
  await press(window, '1 Download');
  await onScreen(window, 'download.html');
  await press(window, absent);
  await window.getByText(`${absent.slice(2)} download failed -1.`).first().waitFor();
  await press(window, 'OK');
  await onScreen(window, 'download.html');
});

test('a page left open finds the program that was started anew', async (t) => {
  const {root, program, window} = await terminal(t);
  await press(window, '1 Download');
  await onScreen(window, 'download.html');
  await stop(program, 'SIGKILL');
  await window.getByText('No connection. Trying again.').waitFor();
  start(t, root, {JXPLATFORM_SCREEN: new URL(window.url()).host}, 'jxdownloader');
  await window.locator('#screen[data-page="mainmenu.html"]').waitFor();
  await press(window, '2 Information');
  await onScreen(window, 'info.html');
});
