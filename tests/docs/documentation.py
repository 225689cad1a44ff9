"""The documentation's pages and the files of the tree, as the tests of this folder read them."""

import os
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
FENCE = re.compile(r"^```.*?^```$", re.MULTILINE | re.DOTALL)
CODE = re.compile(r"`([^`\n]+)`")


def is_generated(name):
    return name.startswith(("build", ".deps", ".git")) or name == "__pycache__"


def files():
    """Every file of the tree but what builds make, by its path from the root."""
    found = []
    for directory, folders, names in os.walk(ROOT):
        folders[:] = [name for name in folders if not is_generated(name)]
        found += [(pathlib.Path(directory) / name).relative_to(ROOT) for name in names]
    return found


def pages():
    """Every page, with its text."""
    return {path: (ROOT / path).read_text() for path in files() if path.suffix == ".md"}


def without_blocks(text):
    return FENCE.sub("", text)


def code_words(text):
    """What stands between backticks, outside blocks of code."""
    return CODE.findall(without_blocks(text))
