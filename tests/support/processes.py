"""Programs that a test runs, and waiting for what they do."""

import os
import pathlib
import subprocess
import time

LIMIT = int(os.environ.get("VX_LIMIT", 60))  # seconds after which a program or a condition has failed


def run(*command, check=True, timeout=LIMIT, **arguments):
    """Runs a program to its end; with `check`, one that fails raises AssertionError with its standard error."""
    words = [str(word) for word in command]
    result = subprocess.run(words, check=False, capture_output=True, text=True, timeout=timeout, **arguments)
    if check and result.returncode != 0:
        raise AssertionError(f"{words} failed with status {result.returncode}: {result.stderr}")
    return result


def wait_until(condition, what, pause=0.02, limit=LIMIT):
    """Waits until condition() is true and returns its value; looks again after each pause (in seconds)."""
    deadline = time.monotonic() + limit
    while not (value := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"still not so after {limit} s: {what}")
        time.sleep(pause)
    return value


def is_running(pid):
    """False, too, for a process that ended but that its parent has not waited for."""
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except FileNotFoundError:
        return False
    return state != "Z"
