// The upload form in a browser: files chosen and sent, the log read, the certificates fetched.

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {copyFileSync, mkdirSync, readdirSync, readFileSync, writeFileSync} from 'node:fs';
import path from 'node:path';
import {after, before, test} from 'node:test';
import {build, close, launch, open, scratch, start, waitUntil} from './support.js';

const form = 'http://127.0.0.1:6370/';

before(launch);
after(close);

// The upload server alone.
async function server(t) {
  const root = scratch(t);
  start(t, root, {}, 'jxdownloader', '--http');
  await waitUntil('the upload server accepts', () => fetch(form).then((answer) => answer.ok, () => false));
  return root;
}

// Two packages of the example, under two names of an operator's own.
function packages(t) {
  const folder = scratch(t);
  return ['first file.zip', 'zweite Datei ü.zip'].map((name) => {
    const file = path.join(folder, name);
    copyFileSync(path.join(build, 'examples/hello-1.0.0.zip'), file);
    return file;
  });
}

async function upload(page, files) {
  await page.locator('input[type="file"]').setInputFiles(files);
  await page.getByRole('button', {name: 'Upload file'}).click();
}

test('two files are uploaded and installed; OK leads back to the form', async (t) => {
  const root = await server(t);
  const page = await open(t, form);
  await page.getByRole('heading', {name: 'JX application file upload'}).waitFor();
  await upload(page, packages(t));
  await page.waitForURL(`${form}upload`);
  const log = await page.locator('body').innerText();
  assert.match(log, /^Upload successful\n/);
  assert.match(log, /\nInstalled hello 1\.0\.0\n/);
  assert.match(log, /\nReinstalled hello 1\.0\.0\n/);
  assert.match(log, /\nList of installed applications:\n\s*hello 1\.0\.0/);
  assert.match(readFileSync(path.join(root, 'apps/hello/greeting.txt'), 'utf8'), /\S/);
  await page.getByRole('button', {name: 'OK'}).click();
  await page.getByRole('heading', {name: 'JX application file upload'}).waitFor();
  assert.match(page.url(), /^http:\/\/127\.0\.0\.1:6370\/\??$/);
});

test('what is no package is said to be none, in red', async (t) => {
  await server(t);
  const file = path.join(scratch(t), 'letter.zip');
  writeFileSync(file, 'Dear <b>terminal</b>');
  const page = await open(t, form);
  await upload(page, [file]);
  const line = page.locator('span', {hasText: 'Error: upload-0.zip'});
  await line.waitFor();
  assert.equal(await line.evaluate((span) => getComputedStyle(span).color), 'rgb(255, 0, 0)');
});

test('a form without a file fails and leads back', async (t) => {
  await server(t);
  const page = await open(t, form);
  await page.getByRole('button', {name: 'Upload file'}).click();
  await page.getByText('Upload failed').waitFor();
  await page.getByRole('button', {name: 'OK'}).click();
  await page.getByRole('heading', {name: 'JX application file upload'}).waitFor();
});

test('the certificates are downloaded as an archive that tar opens', async (t) => {
  const root = await server(t);
  const certificate = path.join(root, 'certs/test-root.pem');
  mkdirSync(path.dirname(certificate));
  execFileSync('openssl', ['req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256', '-nodes', '-batch',
    '-subj', '/CN=Test root', '-keyout', path.join(scratch(t), 'key.pem'), '-out', certificate], {stdio: 'ignore'});
  const page = await open(t, form);
  const [download] = await Promise.all([
    page.waitForEvent('download'), page.getByRole('link', {name: 'certificates.tar'}).click()]);
  assert.equal(download.suggestedFilename(), 'certificates.tar');
  const folder = scratch(t);
  await download.saveAs(path.join(folder, 'certificates.tar'));
  execFileSync('tar', ['-xf', 'certificates.tar'], {cwd: folder});
  const [extracted] = readdirSync(folder, {recursive: true}).filter((name) => name.endsWith('.pem'));
  assert.equal(readFileSync(path.join(folder, extracted), 'utf8'), readFileSync(certificate, 'utf8'));
});
