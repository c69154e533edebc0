"""Run kem-vision-ocr from a Python host: one process per document, started
with an argument list (no shell), under a wall-clock and an address-space
limit, its one JSON line parsed and every outcome mapped onto an exception
named after the helper's failure codes.

    from kvo_host import run_helper, HelperError
    try:
        result = run_helper("/srv/in/scan.png", "/srv/out/scan")
        print(result.page_count, result.text)
        for page in result.document["pages"]: ...
    except HelperError as error:
        print(error.code, error.message)

A run the host stopped (time limit) or that died (a signal, the memory
limit) leaves partial files; they are removed before the exception is
raised, so that the same call can simply be made again (the helper refuses
an artifacts directory holding anything but the input file).

Copy this file into your project; it needs only the standard library.
"""
import json
import os
import resource
import shutil
import signal
import subprocess
from dataclasses import dataclass, field

DEFAULT_HELPER = "kem-vision-ocr"
DEFAULT_TIME_LIMIT = 300.0          # seconds of wall-clock time per document
DEFAULT_MEMORY_LIMIT = 4 << 30      # bytes of address space per document


class HelperError(Exception):
    """A run that did not succeed. `code` is one of the six failure codes."""

    code = "local_runtime_failed"

    def __init__(self, message, exit_status=None, stderr=""):
        super().__init__(message)
        self.message = message
        self.exit_status = exit_status
        self.stderr = stderr


class InvalidInput(HelperError):
    code = "invalid_input"


class EncryptedPdf(HelperError):
    code = "encrypted_pdf"


class ResourceLimitExceeded(HelperError):
    code = "resource_limit_exceeded"


class RuntimeUnavailable(HelperError):
    """The helper could not be started (missing, not executable)."""
    code = "local_runtime_unavailable"


class RuntimeTimeout(HelperError):
    """The helper was killed at the host's time limit."""
    code = "local_runtime_timeout"


class RuntimeFailed(HelperError):
    """The helper failed on its own, or was killed by a signal."""
    code = "local_runtime_failed"


class MemoryLimitExceeded(RuntimeFailed):
    """The helper failed under the address-space limit the way a run out of
    memory fails (a failed allocation, or a crash): raise memory_limit and
    run it again. Its code stays local_runtime_failed, as the helper cannot
    tell a shortage of memory from another failure of the engine."""


ERRORS = {cls.code: cls for cls in
          (InvalidInput, EncryptedPdf, ResourceLimitExceeded, RuntimeUnavailable, RuntimeTimeout, RuntimeFailed)}


@dataclass
class OcrResult:
    artifacts: str
    line: dict
    document: dict = field(repr=False)

    @property
    def page_count(self):
        return self.line["pageCount"]

    @property
    def text(self):
        return self.document["text"]

    def page_image(self, page):
        """Absolute path of a rendered page's image, or None (images, text-layer pages)."""
        relative = self.document["pages"][page - 1].get("imagePath")
        return os.path.join(self.artifacts, relative) if relative else None


def clear_artifacts(artifacts_dir, input_path):
    """Removes what a stopped helper left in its artifacts directory (all but
    a staged input file). Only called after the helper ran in it, and the
    helper starts only in a directory that was empty or held the input."""
    if not os.path.isdir(artifacts_dir):
        return
    keep = os.path.realpath(input_path)
    for entry in os.scandir(artifacts_dir):
        if os.path.realpath(entry.path) == keep:
            continue
        if entry.is_dir(follow_symlinks=False):
            shutil.rmtree(entry.path)
        else:
            os.unlink(entry.path)


def _mib(size):
    return "%g MiB" % (size / (1 << 20))


def run_helper(input_path, artifacts_dir, output_mode=None, helper=DEFAULT_HELPER,
               time_limit=DEFAULT_TIME_LIMIT, memory_limit=DEFAULT_MEMORY_LIMIT):
    """Runs the helper on one document and returns an OcrResult, or raises a HelperError."""
    arguments = [helper, "--input", os.path.abspath(input_path),
                 "--artifacts", os.path.abspath(artifacts_dir)]
    if output_mode is not None:
        arguments += ["--output-mode", output_mode]
    arguments.append("--json")

    def limit_memory():  # runs in the child between fork and exec
        if memory_limit:
            resource.setrlimit(resource.RLIMIT_AS, (memory_limit, memory_limit))

    try:
        completed = subprocess.run(arguments, stdin=subprocess.DEVNULL, capture_output=True,
                                   timeout=time_limit, preexec_fn=limit_memory, check=False)
    except FileNotFoundError as error:
        raise RuntimeUnavailable("Helper not found: %s" % error) from None
    except PermissionError as error:
        raise RuntimeUnavailable("Helper cannot be started: %s" % error) from None
    except subprocess.TimeoutExpired:  # subprocess.run has killed it (SIGKILL)
        clear_artifacts(artifacts_dir, input_path)
        raise RuntimeTimeout("Helper stopped after %g s" % time_limit) from None

    status = completed.returncode
    stderr = completed.stderr.decode("utf-8", "replace")
    out_of_memory = ("Helper failed under the %s memory limit (%%s); raise memory_limit and run it again"
                     % _mib(memory_limit)) if memory_limit else None
    if status < 0:
        clear_artifacts(artifacts_dir, input_path)
        reason = "killed by signal %s" % signal.Signals(-status).name
        if out_of_memory:
            raise MemoryLimitExceeded(out_of_memory % reason, status, stderr)
        raise RuntimeFailed("Helper " + reason, status, stderr)
    try:
        line = json.loads(completed.stdout.decode("utf-8"))
    except ValueError:
        if status in (126, 127):  # a wrapper that could not start it
            raise RuntimeUnavailable("Helper cannot be started (exit %d)" % status, status, stderr) from None
        raise RuntimeFailed("Helper exited %d without a JSON line" % status, status, stderr) from None

    if status == 0 and line.get("ok") is True:
        with open(os.path.join(artifacts_dir, line["resultPath"]), encoding="utf-8") as f:
            document = json.load(f)
        return OcrResult(os.path.abspath(artifacts_dir), line, document)
    error = line.get("error", {}) if isinstance(line, dict) else {}
    cls = ERRORS.get(error.get("code"), RuntimeFailed)
    message = error.get("message", "Helper failed without a message")
    if cls is RuntimeFailed and out_of_memory:
        clear_artifacts(artifacts_dir, input_path)
        raise MemoryLimitExceeded(out_of_memory % message, status, stderr)
    raise cls(message, status, stderr)
