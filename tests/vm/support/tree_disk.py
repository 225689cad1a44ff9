"""The guest's disk with the tree under test: installed programs, the tests' own, their libraries, scripts and models.

As a program: makes the disk, once for all tests of a run.
"""

import os
import pathlib
import re
import shutil
import sys
import tempfile

from paths import BIN, SOURCE
from processes import run

BUILD = BIN.parent
DISK = BUILD / "vm" / "tree.img"
GUEST = SOURCE / ".deps" / "guest"  # made by scripts/setup
FOLDERS = ("scripts", "yang", "tests/support", "tests/e2e/support", "tests/vm")
TEST_PROGRAMS = ("datastore_committer", "relay_load", "relay_answer")
LIMIT = 300  # seconds


def make():
    """Replaces the disk by one of what is built now."""
    DISK.parent.mkdir(exist_ok=True)
    with tempfile.TemporaryDirectory(dir=DISK.parent) as directory:
        tree = pathlib.Path(directory, "tree")
        _install(tree)
        _copy_libraries(tree)
        _make_image(tree, DISK)


def _install(tree):
    """The programs in build/bin, the libraries beside it; the datastore's tools where scripts/stack looks for them."""
    run("cmake", "--install", BUILD, "--prefix", tree / "build", "--strip", timeout=LIMIT)
    for program in (tree / "build" / "sbin").iterdir():
        program.rename(tree / "build" / "bin" / program.name)
    for name in TEST_PROGRAMS:
        shutil.copy(BIN / name, tree / "build" / "bin" / name)
    for folder in FOLDERS:
        shutil.copytree(SOURCE / folder, tree / folder, ignore=shutil.ignore_patterns("__pycache__"))
    tools = tree / ".deps" / "prefix" / "bin"
    tools.mkdir(parents=True)
    for tool in ("sysrepoctl", "sysrepocfg"):
        shutil.copy(_tool(tool), tools / tool)


def _tool(name):
    return pathlib.Path(SOURCE, ".deps", "prefix", "bin", name).resolve()


def _copy_libraries(tree):
    """Every library that a program needs, as this machine finds it, but for those of the C library."""
    libraries = tree / "lib"
    libraries.mkdir()
    programs = [*BIN.glob("dhcp-*"), *(BIN / name for name in TEST_PROGRAMS), _tool("sysrepocfg")]
    for found in re.findall(r"=> (/\S+)", run("ldd", *programs).stdout):
        if not re.match(r"(libc|libm|libpthread|libdl|librt|libresolv|ld-linux)\b", pathlib.Path(found).name):
            shutil.copy(found, libraries)


def _make_image(tree, image):
    size = sum(path.stat().st_size for path in tree.rglob("*") if path.is_file()) * 2 // 2**20 + 16
    new = image.with_suffix(".new")
    new.unlink(missing_ok=True)
    run("mke2fs", "-q", "-t", "ext4", "-O", "^has_journal", "-d", tree, new, f"{size}M", timeout=LIMIT)
    os.replace(new, image)


if __name__ == "__main__":
    if not (GUEST / ".stamp").exists():
        sys.exit("tree_disk: there is no guest in .deps/guest; run 'scripts/setup test' first")
    make()
