// Run kem-vision-ocr from a Node.js host: one process per document, started
// with an argument list (no shell), under a wall-clock and an address-space
// limit, its one JSON line parsed and every outcome mapped onto an error
// class named after the helper's failure codes.
//
//   import { runHelper, HelperError } from './kvo-host.mjs';
//   try {
//     const result = await runHelper({ input: '/srv/in/scan.png', artifacts: '/srv/out/scan' });
//     console.log(result.pageCount, result.document.text);
//   } catch (error) {
//     if (error instanceof HelperError) console.log(error.code, error.message);
//   }
//
// Node cannot set a child's resource limits itself, so the memory limit is
// applied by util-linux's prlimit(1), which then executes the helper.
//
// A run the host stopped (time limit) or that died (a signal, the memory
// limit) leaves partial files; they are removed before the error is thrown,
// so that the same call can simply be made again (the helper refuses an
// artifacts directory holding anything but the input file). Outcomes map
// onto the same classes as in kvo_host.py.
// Copy this file into your project; it needs only Node's own modules.

import { spawn } from 'node:child_process';
import { access, readFile, readdir, realpath, rm } from 'node:fs/promises';
import { constants } from 'node:fs';
import path from 'node:path';

export const DEFAULT_TIME_LIMIT_MS = 300_000;
export const DEFAULT_MEMORY_LIMIT = 4 * 1024 ** 3;

export class HelperError extends Error {
  constructor(code, message, { exitStatus = null, signal = null, stderr = '' } = {}) {
    super(message);
    this.name = new.target.name;
    this.code = code;
    this.exitStatus = exitStatus;
    this.signal = signal;
    this.stderr = stderr;
  }
}
export class InvalidInput extends HelperError {}
export class EncryptedPdf extends HelperError {}
export class ResourceLimitExceeded extends HelperError {}
export class RuntimeUnavailable extends HelperError {}
export class RuntimeTimeout extends HelperError {}
export class RuntimeFailed extends HelperError {}
// Failed under the address-space limit the way a run out of memory fails (a
// failed allocation, or a crash): raise memoryLimit and run it again. Its
// code stays local_runtime_failed; the helper cannot tell a shortage of
// memory from another failure of the engine.
export class MemoryLimitExceeded extends RuntimeFailed {}

const ERRORS = {
  invalid_input: InvalidInput,
  encrypted_pdf: EncryptedPdf,
  resource_limit_exceeded: ResourceLimitExceeded,
  local_runtime_unavailable: RuntimeUnavailable,
  local_runtime_timeout: RuntimeTimeout,
  local_runtime_failed: RuntimeFailed,
};

function failure(code, message, details) {
  const Class = ERRORS[code] ?? RuntimeFailed;
  return new Class(ERRORS[code] ? code : 'local_runtime_failed', message, details);
}

// Removes what a stopped helper left in its artifacts directory (all but a
// staged input file). Only called after the helper ran in it, and the helper
// starts only in a directory that was empty or held the input.
export async function clearArtifacts(artifacts, input) {
  let entries;
  try {
    entries = await readdir(artifacts);
  } catch {
    return;
  }
  let keep = path.resolve(input);
  try {
    keep = await realpath(keep);
  } catch { /* the input is gone: nothing to keep */ }
  for (const name of entries) {
    const entry = path.join(artifacts, name);
    let real = entry;
    try {
      real = await realpath(entry);
    } catch { /* a dangling link: remove it */ }
    if (real !== keep) await rm(entry, { recursive: true, force: true });
  }
}

const mib = (bytes) => `${bytes / 1024 ** 2} MiB`;

// Resolves to { line, pageCount, artifacts, document } or rejects with a HelperError.
export async function runHelper({
  input,
  artifacts,
  outputMode,
  helper = 'kem-vision-ocr',
  timeLimitMs = DEFAULT_TIME_LIMIT_MS,
  memoryLimit = DEFAULT_MEMORY_LIMIT,
  prlimit = 'prlimit',
}) {
  const args = ['--input', path.resolve(input), '--artifacts', path.resolve(artifacts)];
  if (outputMode !== undefined) args.push('--output-mode', outputMode);
  args.push('--json');

  if (helper.includes('/')) {
    try {
      await access(helper, constants.X_OK);
    } catch (error) {
      throw new RuntimeUnavailable('local_runtime_unavailable', `Helper cannot be started: ${error.message}`);
    }
  }
  const [command, argv] = memoryLimit ? [prlimit, [`--as=${memoryLimit}`, '--', helper, ...args]] : [helper, args];

  const { status, signal, stdout, stderr, timedOut } = await new Promise((resolve, reject) => {
    const child = spawn(command, argv, { stdio: ['ignore', 'pipe', 'pipe'], shell: false });
    const out = [];
    const err = [];
    let timedOut = false;
    const timer = setTimeout(() => {
      timedOut = true;
      child.kill('SIGKILL');
    }, timeLimitMs);
    child.stdout.on('data', (chunk) => out.push(chunk));
    child.stderr.on('data', (chunk) => err.push(chunk));
    child.on('error', (error) => {
      clearTimeout(timer);
      reject(new RuntimeUnavailable('local_runtime_unavailable', `Helper cannot be started: ${error.message}`));
    });
    child.on('close', (code, sig) => {
      clearTimeout(timer);
      resolve({
        status: code,
        signal: sig,
        stdout: Buffer.concat(out).toString('utf8'),
        stderr: Buffer.concat(err).toString('utf8'),
        timedOut,
      });
    });
  });

  const details = { exitStatus: status, signal, stderr };
  const artifactsDir = path.resolve(artifacts);
  const outOfMemory = (reason) => new MemoryLimitExceeded('local_runtime_failed',
    `Helper failed under the ${mib(memoryLimit)} memory limit (${reason}); raise memoryLimit and run it again`, details);
  if (timedOut) {
    await clearArtifacts(artifactsDir, input);
    throw new RuntimeTimeout('local_runtime_timeout', `Helper stopped after ${timeLimitMs} ms`, details);
  }
  if (signal) {
    await clearArtifacts(artifactsDir, input);
    if (memoryLimit) throw outOfMemory(`killed by ${signal}`);
    throw new RuntimeFailed('local_runtime_failed', `Helper killed by ${signal}`, details);
  }
  let line;
  try {
    line = JSON.parse(stdout);
  } catch {
    // prlimit, or another wrapper, that could not execute the helper.
    if (status === 126 || status === 127) {
      throw new RuntimeUnavailable('local_runtime_unavailable', `Helper cannot be started (exit ${status})`, details);
    }
    throw new RuntimeFailed('local_runtime_failed', `Helper exited ${status} without a JSON line`, details);
  }
  if (status === 0 && line.ok === true) {
    const document = JSON.parse(await readFile(path.join(artifactsDir, line.resultPath), 'utf8'));
    return { line, pageCount: line.pageCount, artifacts: artifactsDir, document };
  }
  const error = line?.error ?? {};
  const message = error.message ?? 'Helper failed without a message';
  const thrown = failure(error.code, message, details);
  if (thrown.constructor === RuntimeFailed && memoryLimit) {
    await clearArtifacts(artifactsDir, input);
    throw outOfMemory(message);
  }
  throw thrown;
}
