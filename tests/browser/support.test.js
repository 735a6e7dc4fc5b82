// What ends a program badly fails the test that started it.

import assert from 'node:assert/strict';
import {once} from 'node:events';
import {test} from 'node:test';
import {scratch, start, stop} from './support.js';

// A program of `script`, as a test of its own would start it; ends `t` with what that test's end would do.
function shell(t, script) {
  let end;
  const child = start({after: (hook) => { end = hook; }}, scratch(t), {}, '/bin/sh', '-c', script);
  return {child, end: () => end()};
}

for (const [script, why] of [['exit 99', 'ended with 99'], ['exit 1', 'ended with 1'], ['kill -ABRT $$', 'ended with SIGABRT']]) {
  test(`"${script}" fails the test`, async (t) => {
    const {child, end} = shell(t, script);
    await once(child, 'exit');
    await assert.rejects(end(), {message: `/bin/sh ${why}`});
  });
}

test('a program that ends by itself, or when it is told to, does not', async (t) => {
  const {child, end} = shell(t, 'exit 0');
  await once(child, 'exit');
  await end();
  await shell(t, 'read line').end();
});

test('one that does not end is killed, and fails the test', async (t) => {
  const {child} = shell(t, 'trap "" TERM; echo ready; while :; do read line || sleep 1; done');
  await once(child.stdout, 'data');
  await assert.rejects(stop(child, 'SIGTERM', 100), {message: '/bin/sh did not end'});
  assert.equal(child.signalCode, 'SIGKILL');
});
