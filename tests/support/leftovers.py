"""Directories of tests, named after the process that made them, so that those of a crashed one are found again."""

import os
import pathlib
import shutil
import tempfile


def make_directory(kind):
    """A new directory of this process."""
    return pathlib.Path(tempfile.mkdtemp(prefix=f"{kind}.{os.getpid()}."))


def remove_leftovers(kind, clean):
    """Calls clean(directory) for every directory of that kind whose process is gone, and removes it."""
    for directory in pathlib.Path(tempfile.gettempdir()).glob(f"{kind}.*.*"):
        pid = directory.name.split(".")[1]
        if not pid.isdigit() or pathlib.Path(f"/proc/{pid}").exists():
            continue
        clean(directory)
        shutil.rmtree(directory, ignore_errors=True)
