// What the browser tests share: the built programs, Chromium, and the sizes that the pages are made for.

import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {once} from 'node:events';
import {existsSync, mkdirSync, mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {createInterface} from 'node:readline';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {setTimeout as pause} from 'node:timers/promises';
import {chromium} from 'playwright-core';

export const build = process.env.JX_BUILD_DIR;
export const source = process.env.JX_SOURCE_DIR;

export const sizes = {
  upright: {viewport: {width: 320, height: 480}, hasTouch: true, isMobile: true},
  lying: {viewport: {width: 480, height: 272}, hasTouch: true, isMobile: true},
  pc: {viewport: {width: 1280, height: 800}},
};

// Polls until `condition` gives something and returns it; fails after half a minute.
export async function waitUntil(what, condition, everyMs = 20) {
  for (const end = Date.now() + 30000; Date.now() < end; await pause(everyMs)) {
    const value = await condition();
    if (value) return value;
  }
  throw new Error(`not within 30 s: ${what}`);
}

const undoings = new WeakMap();

// Has `undo` run when the test `t` has ended: the last one first, each even when another has failed.
export function atEnd(t, undo) {
  if (!undoings.has(t)) {
    undoings.set(t, []);
    t.after(() => undoAll(undoings.get(t)));
  }
  undoings.get(t).unshift(undo);
}

async function undoAll(undos) {
  const errors = [];
  for (const undo of undos) await Promise.resolve().then(undo).catch((error) => errors.push(error));
  if (errors.length > 0) throw errors.length === 1 ? errors[0] : new AggregateError(errors, errors.map(String).join('\n'));
}

// A folder that is gone when the test `t` has ended.
export function scratch(t) {
  const folder = mkdtempSync(path.join(tmpdir(), 'jxbrowser-'));
  atEnd(t, () => rmSync(folder, {recursive: true, force: true}));
  return folder;
}

// Starts a program, a built one unless `name` is a whole path, with a platform root; it is ended, and must not have failed,
// when the test has ended.
export function start(t, root, env, name, ...args) {
  const child = spawn(path.resolve(build, 'bin', name), args, {
    env: {...process.env, JXPLATFORM_ROOT: root, JXPLATFORM_SCREEN: '127.0.0.1:0',
      JXPLATFORM_BUS: 'unix:path=/nonexistent', ...env},
    stdio: ['pipe', 'pipe', 'inherit'],
  });
  child.ended = once(child, 'exit');
  child.stdin.on('error', () => {});  // its end shows in how it ended
  atEnd(t, () => stop(child));
  return child;
}

const hasEnded = (child) => child.exitCode !== null || child.signalCode !== null;

// Ends a program, if it has not ended yet. Throws when it failed: a sanitizer gives what it finds a code of its own.
export async function stop(child, how = 'SIGTERM', withinMs = 20000) {
  if (!hasEnded(child)) child.kill(how);
  await verdict(child, withinMs);
}

// Waits for a program's end. Throws when it failed or has to be killed.
export async function verdict(child, withinMs = 20000) {
  await Promise.race([child.ended, pause(withinMs, null, {ref: false})]);
  const late = !hasEnded(child);
  if (late) child.kill('SIGKILL');
  const [code, signal] = await child.ended;
  if (late) throw new Error(`${child.spawnfile} did not end`);
  if (code !== 0 && !['SIGTERM', 'SIGKILL'].includes(signal)) {
    throw new Error(`${child.spawnfile} ended with ${code ?? signal}`);
  }
}

// The screen's URL, once the program with this root shows a page.
export const screenUrl = (root) => waitUntil('the screen is served', () => {
  const file = path.join(root, 'screen.url');
  return existsSync(file) && readFileSync(file, 'utf8').trim();
});

// The pages that the program shows without waiting for what they return.
const asynchronous = ['wait.html', 'download-http.html', 'download-ddl.html', 'missing.html'];

// Pages shown through the real GUI library, without the program's logic: jxscreen_driver.
export class Pages {
  constructor(t, root, env = {}) {
    this.root = root;
    this.told = [];
    this.child = start(t, root, env, 'jxscreen_driver');
    atEnd(t, () => this.end());
    createInterface({input: this.child.stdout}).on('line', (line) => this.told.push(JSON.parse(line)));
  }

  // Ends in the usual way, so that a sanitizer can have its last word as well.
  async end() {
    if (hasEnded(this.child)) return;
    this.command({async: 'wait.html'});  // ends what is still open
    this.child.stdin.end();
    await verdict(this.child);
  }

  command(line) {
    this.child.stdin.write(`${JSON.stringify(line)}\n`);
  }

  // Shows `page` and does not wait for its return. One that is still open ends first, as on a terminal.
  async show(page, vars = {}) {
    await this.showAsync('wait.html');
    await this.showSync(page, vars);
  }

  async showSync(page, vars) {
    if (this.open) await this.returned(this.open);
    this.open = page;
    this.command({sync: page, vars, thread: true});
  }

  // Shows `page` on `window` in place of another one, so that its first part has the focus.
  async bring(window, page, vars = {}) {
    await this.showAsync('wait.html');
    await onScreen(window, 'wait.html');
    if (asynchronous.includes(page)) await this.showAsync(page, vars);
    else await this.showSync(page, vars);
    await onScreen(window, page);
  }

  async showAsync(page, vars = {}) {
    this.command({async: page, vars});
    await this.hear(`${page} is shown`, (line) => line.shown === page);
  }

  // Waits for what `page` returns, or an asynchronous one reports, and forgets it.
  async returned(page) {
    const line = await this.hear(`${page} returns`, ({returned, reported}) => page === (returned ?? reported));
    if (page === this.open) this.open = undefined;
    return line;
  }

  async hear(what, isIt) {
    await waitUntil(what, () => this.told.some(isIt), 2);
    return this.told.splice(this.told.findIndex(isIt), 1)[0];
  }

  url() {
    return screenUrl(this.root);
  }
}

let browser;

export async function launch() {
  browser = await chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--disable-dev-shm-usage'],
  });
}

export const close = () => browser.close();

// A browser window of its own. The test fails of what must not happen in it: errors, refusals of the content policy, requests
// that leave the server.
export async function open(t, url, options = sizes.pc) {
  const context = await browser.newContext(options);
  const page = await context.newPage();
  // The clock by which the screen tells one press from another stands still until a test puts it ahead; long timers take
  // as long as the test says.
  await page.addInitScript(() => {
    globalThis.clock = 1000;
    performance.now = () => globalThis.clock;
    globalThis.hastened = {};
    const begin = globalThis.setTimeout;
    globalThis.setTimeout = (act, ms, ...rest) => begin(act, globalThis.hastened[ms] ?? ms, ...rest);
  });
  const problems = [];
  atEnd(t, async () => {
    await context.close();
    assert.deepEqual(problems, []);
  });
  page.on('pageerror', (error) => problems.push(String(error)));
  page.on('console', (message) => {
    if (message.type() === 'error' && !/Failed to load resource/.test(message.text())) problems.push(message.text());
  });
  page.on('request', (request) => {
    if (!/^data:/.test(request.url()) && new URL(request.url()).origin !== new URL(url).origin) {
      problems.push(`a request for ${request.url()}`);
    }
  });
  await page.goto(url);
  return page;
}

// Waits until the program shows `name` and this browser's screen has it, ready to be operated.
export async function onScreen(window, name) {
  let screen;
  await waitUntil(`the program shows ${name}`, async () => {
    screen = await (await fetch(new URL('/api/screen', window.url()))).json();
    return screen.page === name;
  });
  await window.locator(`#screen[data-id="${screen.id}"][aria-busy="false"]`).waitFor();
  await rest(window);
}

// Lets the operator pause until whatever `window` shows takes a press.
export async function rest(window) {
  await window.locator('#screen[data-settled]').waitFor();
  await skip(window, 1000);
}

// Lets `ms` pass for the presses on `window`.
export const skip = (window, ms) => window.evaluate((time) => { globalThis.clock += time; }, ms);

// Pages in a main menu with all its entries, and a window that shows it.
export async function pagesIn(t, options = sizes.pc) {
  const root = scratch(t);
  const shown = new Pages(t, root);
  await shown.show('mainmenu.html', {show_settings: '1', show_cloudproxy: '1'});
  const url = await shown.url();
  const window = await open(t, url, options);
  await onScreen(window, 'mainmenu.html');
  return {root, shown, window, url};
}

// A folder for pictures below the build folder.
export function pictures() {
  const folder = path.join(build, 'screenshots');
  mkdirSync(folder, {recursive: true});
  return folder;
}
