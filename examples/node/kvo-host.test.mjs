// kvo-host.mjs against the real helper binary:
//   KVO_HELPER=build/kem-vision-ocr KVO_SAMPLES=samples node --test examples/node/
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { chmod, copyFile, mkdtemp, mkdir, readFile, readdir, rm, writeFile, stat } from 'node:fs/promises';
import os from 'node:os';
import path from 'node:path';
import * as kvo from './kvo-host.mjs';

const helper = path.resolve(process.env.KVO_HELPER ?? 'build/kem-vision-ocr');
const samples = path.resolve(process.env.KVO_SAMPLES ?? 'samples');

async function tempDir(t) {
  const dir = await mkdtemp(path.join(os.tmpdir(), 'kvo-node-'));
  t.after(() => rm(dir, { recursive: true, force: true }));
  return dir;
}

test('an image is read with its regions', async (t) => {
  const dir = await tempDir(t);
  const result = await kvo.runHelper({ input: path.join(samples, 'sample.png'), artifacts: path.join(dir, 'a'), helper });
  assert.equal(result.pageCount, 1);
  assert.match(result.document.text, /Harbour Light Books/);
  assert.match(result.document.text, /港湾之光书店/);
  const regions = result.document.pages[0].regions;
  assert.ok(regions.length > 3);
  for (const region of regions) assert.equal(region.polygon.length, 4);
  assert.equal(await readFile(path.join(dir, 'a', 'ocr.txt'), 'utf8'), result.document.text);
});

test('a PDF in text mode renders only its scanned page', async (t) => {
  const dir = await tempDir(t);
  const result = await kvo.runHelper({
    input: path.join(samples, 'sample.pdf'), artifacts: path.join(dir, 'a'), outputMode: 'text', helper,
  });
  assert.equal(result.pageCount, 2);
  assert.equal(result.document.pages[0].imagePath, undefined);
  assert.equal(result.document.pages[1].imagePath, 'pages/page-0002.png');
  assert.ok((await stat(path.join(dir, 'a', 'pages', 'page-0002.png'))).size > 0);
});

test('a missing input is InvalidInput', async (t) => {
  const dir = await tempDir(t);
  await assert.rejects(kvo.runHelper({ input: path.join(dir, 'absent.png'), artifacts: path.join(dir, 'a'), helper }),
    (error) => error instanceof kvo.InvalidInput && error.code === 'invalid_input'
      && error.message === 'Input file is missing' && error.exitStatus === 2);
});

test('a used artifacts directory is InvalidInput', async (t) => {
  const dir = await tempDir(t);
  await mkdir(path.join(dir, 'a'));
  await writeFile(path.join(dir, 'a', 'left-over'), '');
  await assert.rejects(kvo.runHelper({ input: path.join(samples, 'sample.png'), artifacts: path.join(dir, 'a'), helper }),
    (error) => error instanceof kvo.InvalidInput && error.message === 'Artifact directory contains unexpected files');
});

test('a missing helper is RuntimeUnavailable', async (t) => {
  const dir = await tempDir(t);
  await assert.rejects(kvo.runHelper({
    input: path.join(samples, 'sample.png'), artifacts: path.join(dir, 'a'), helper: path.join(dir, 'no-such-helper'),
  }), (error) => error instanceof kvo.RuntimeUnavailable && error.code === 'local_runtime_unavailable');
});

test('the time limit kills the helper', async (t) => {
  const dir = await tempDir(t);
  await assert.rejects(kvo.runHelper({
    input: path.join(samples, 'sample.pdf'), artifacts: path.join(dir, 'a'), helper, timeLimitMs: 50,
  }), (error) => error instanceof kvo.RuntimeTimeout && error.code === 'local_runtime_timeout' && error.signal === 'SIGKILL');
});

test('a helper on the PATH that does not exist is RuntimeUnavailable (prlimit exits 127)', async (t) => {
  const dir = await tempDir(t);
  await assert.rejects(kvo.runHelper({
    input: path.join(samples, 'sample.png'), artifacts: path.join(dir, 'a'), helper: 'kvo-no-such-helper',
  }), (error) => error instanceof kvo.RuntimeUnavailable && error.code === 'local_runtime_unavailable');
});

test('a time-out, then the same call again, succeeds', async (t) => {
  const dir = await tempDir(t);
  const call = { input: path.join(samples, 'sample.pdf'), artifacts: path.join(dir, 'a'), helper };
  await assert.rejects(kvo.runHelper({ ...call, timeLimitMs: 200 }), (error) => error instanceof kvo.RuntimeTimeout);
  assert.deepEqual(await readdir(call.artifacts).catch(() => []), []);
  const result = await kvo.runHelper(call);
  assert.equal(result.pageCount, 2);
});

test('what a stopped helper left is cleared, the staged input kept', async (t) => {
  const dir = await tempDir(t);
  // A stand-in that writes a page and then hangs, so that something is surely left.
  const standIn = path.join(dir, 'hanging-helper');
  await writeFile(standIn, '#!/bin/sh\nmkdir -p "$4/pages" && echo x > "$4/pages/page-0001.png"\nexec sleep 30\n');
  await chmod(standIn, 0o755);
  const artifacts = path.join(dir, 'a');
  await mkdir(artifacts);
  const staged = path.join(artifacts, 'scan.png');
  await copyFile(path.join(samples, 'sample.png'), staged);
  await assert.rejects(kvo.runHelper({ input: staged, artifacts, helper: standIn, timeLimitMs: 500 }),
    (error) => error instanceof kvo.RuntimeTimeout);
  assert.deepEqual(await readdir(artifacts), ['scan.png']);
  const result = await kvo.runHelper({ input: staged, artifacts, helper });
  assert.match(result.document.text, /Harbour Light Books/);
});

test('the memory limit is its own error, and a retry with the default limit succeeds', async (t) => {
  const dir = await tempDir(t);
  const call = { input: path.join(samples, 'sample.png'), artifacts: path.join(dir, 'a'), helper };
  // 150 MiB of address space is too little for the recognition models.
  await assert.rejects(kvo.runHelper({ ...call, memoryLimit: 150 * 1024 ** 2 }),
    (error) => error instanceof kvo.MemoryLimitExceeded && error instanceof kvo.RuntimeFailed
      && error.code === 'local_runtime_failed' && /150 MiB memory limit/.test(error.message)
      && /raise memoryLimit/.test(error.message));
  const result = await kvo.runHelper(call);
  assert.equal(result.line.ok, true);
});
