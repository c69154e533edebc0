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
// Copy this file into your project; it needs only Node's own modules.

import { spawn } from 'node:child_process';
import { access, readFile } from 'node:fs/promises';
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
  if (timedOut) throw new RuntimeTimeout('local_runtime_timeout', `Helper stopped after ${timeLimitMs} ms`, details);
  if (signal) throw new RuntimeFailed('local_runtime_failed', `Helper killed by ${signal}`, details);
  let line;
  try {
    line = JSON.parse(stdout);
  } catch {
    throw new RuntimeFailed('local_runtime_failed', `Helper exited ${status} without a JSON line`, details);
  }
  if (status === 0 && line.ok === true) {
    const artifactsDir = path.resolve(artifacts);
    const document = JSON.parse(await readFile(path.join(artifactsDir, line.resultPath), 'utf8'));
    return { line, pageCount: line.pageCount, artifacts: artifactsDir, document };
  }
  const error = line?.error ?? {};
  throw failure(error.code, error.message ?? 'Helper failed without a message', details);
}
