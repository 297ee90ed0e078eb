"""Python's standard error kept apart from the SDK's log.

Unless told otherwise, the SDK puts its log file in place of descriptor 2 when the facade is
created, and whatever is written there lands in the log. Python's own standard error (tracebacks,
warnings) is kept on the terminal or pipe the process was started with: before anything calls into
the library, sys.stderr and sys.__stderr__ are pointed at a duplicate of descriptor 2, which the
SDK leaves alone. The duplicate is not inherited: child processes write to descriptor 2, as they
always did.
"""

import faulthandler
import io
import os
import sys


def keep_python_stderr() -> None:
    stream = sys.stderr
    # A standard error that someone already pointed elsewhere (a test runner's capture, a log) is
    # theirs, and stays.
    if stream is None or stream is not sys.__stderr__ or not isinstance(stream, io.TextIOWrapper):
        return
    try:
        if stream.fileno() != 2:
            return
        stream.flush()
        duplicate = os.dup(2)
    except (OSError, ValueError):
        return
    kept = open(duplicate, "w", buffering=1, encoding=stream.encoding, errors=stream.errors)
    kept.reconfigure(write_through=stream.write_through)
    sys.stderr = sys.__stderr__ = kept
    if faulthandler.is_enabled():
        faulthandler.enable(kept)


keep_python_stderr()
