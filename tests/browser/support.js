// What the browser tests share: the built programs, Chromium, and the sizes that the pages are made for.

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
export async function waitUntil(what, condition) {
  for (const end = Date.now() + 30000; Date.now() < end; await pause(20)) {
    const value = await condition();
    if (value) return value;
  }
  throw new Error(`not within 30 s: ${what}`);
}

// A folder that is gone when the test `t` has ended.
export function scratch(t) {
  const folder = mkdtempSync(path.join(tmpdir(), 'jxbrowser-'));
  t.after(() => rmSync(folder, {recursive: true, force: true}));
  return folder;
}

// Starts a built program with a platform root; it is ended, and must not have crashed, when the test has ended.
export function start(t, root, env, name, ...args) {
  const child = spawn(path.join(build, 'bin', name), args, {
    env: {...process.env, JXPLATFORM_ROOT: root, JXPLATFORM_SCREEN: '127.0.0.1:0',
      JXPLATFORM_BUS: 'unix:path=/nonexistent', ...env},
    stdio: ['pipe', 'pipe', 'inherit'],
  });
  child.ended = once(child, 'exit');
  t.after(() => stop(child));
  return child;
}

export async function stop(child, how = 'SIGTERM') {
  if (child.exitCode === null && child.signalCode === null) child.kill(how);
  const [code, signal] = await child.ended;
  if (code !== 0 && code !== null || code === null && !['SIGTERM', 'SIGKILL'].includes(signal)) {
    throw new Error(`${child.spawnfile} ended with ${code ?? signal}`);
  }
}

// The screen's URL, once the program with this root shows a page.
export const screenUrl = (root) => waitUntil('the screen is served', () => {
  const file = path.join(root, 'screen.url');
  return existsSync(file) && readFileSync(file, 'utf8').trim();
});

// Pages shown through the real GUI library, without the program's logic: jxscreen_driver.
export class Pages {
  constructor(t, root, env = {}) {
    this.root = root;
    this.told = [];
    this.child = start(t, root, env, 'jxscreen_driver');
    createInterface({input: this.child.stdout}).on('line', (line) => this.told.push(JSON.parse(line)));
  }

  command(line) {
    this.child.stdin.write(`${JSON.stringify(line)}\n`);
  }

  // Shows `page` and does not wait for its return. One that is still open ends first, as on a terminal.
  async show(page, vars = {}) {
    await this.showAsync('wait.html');
    if (this.open) await this.returned(this.open);
    this.open = page;
    this.command({sync: page, vars, thread: true});
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
    await waitUntil(what, () => this.told.some(isIt));
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

// A browser window of its own. `problems` fills with what must not happen: errors, refusals of the content policy,
// requests that leave the server.
export async function open(t, url, options = sizes.pc) {
  const context = await browser.newContext(options);
  t.after(() => context.close());
  const page = await context.newPage();
  page.problems = [];
  page.on('pageerror', (error) => page.problems.push(String(error)));
  page.on('console', (message) => {
    if (message.type() === 'error' && !/Failed to load resource/.test(message.text())) page.problems.push(message.text());
  });
  page.on('request', (request) => {
    if (!/^data:/.test(request.url()) && new URL(request.url()).origin !== new URL(url).origin) {
      page.problems.push(`a request for ${request.url()}`);
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
}

// A folder for pictures below the build folder.
export function pictures() {
  const folder = path.join(build, 'screenshots');
  mkdirSync(folder, {recursive: true});
  return folder;
}
