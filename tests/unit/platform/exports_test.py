"""The platform's shared libraries export what their public headers declare, and nothing else."""

import os
import re
import subprocess
import unittest
from pathlib import Path

PLATFORM = Path(__file__).resolve().parents[3] / "platform"
LIBRARIES = Path(os.environ["VX_BIN_DIR"]).parent / "lib"

# Templates and inline functions of the standard library, as every program has them.
STANDARD = re.compile(r"_Z(GV|T[VIST])?Z?N?K?S[tsabiod]")

# Functions of a library below that the platform's own stand in for, which have to be seen for that.
STAND_INS = {"vxconfd": {"sr_get_repo_path", "sr_get_shm_path"}}

# What stands before the name that a demangled symbol belongs to.
KIND = re.compile(r"^(vtable|VTT|typeinfo|typeinfo name|guard variable|(non-)?virtual thunk) (for|to) ")


def declared_words(library):
    """Every name in the public headers of a library."""
    words = set()
    for header in (PLATFORM / library / "include").rglob("*.h"):
        code = re.sub(r"//[^\n]*", "", header.read_text(encoding="utf-8"))
        words.update(re.findall(r"[A-Za-z_]\w*", code))
    return words


def exported_symbols(library):
    """(mangled, demangled) of every symbol that the library defines for others."""
    listing = subprocess.run(
        ["nm", "-D", "--defined-only", "--format=posix", LIBRARIES / f"lib{library}.so"],
        check=True, capture_output=True, text=True).stdout
    mangled = [line.split()[0] for line in listing.splitlines()]
    demangled = subprocess.run(["c++filt"], input="\n".join(mangled), check=True, capture_output=True, text=True).stdout
    return list(zip(mangled, demangled.splitlines()))


def names_of(symbol):
    """The parts of a symbol's qualified name: ["vxmw", "EndLoop"] of "vxmw::EndLoop(vxmw_handle*, int)"."""
    name = KIND.sub("", symbol).replace("(anonymous namespace)", "anonymous")
    return re.findall(r"[A-Za-z_]\w*", re.sub(r"\[abi:\w+\]", "", name.split("(")[0]))


def undeclared(library):
    words = declared_words(library) - {"Impl"} | STAND_INS.get(library, set())
    return [symbol for mangled, symbol in exported_symbols(library)
            if not STANDARD.match(mangled) and not words.issuperset(names_of(symbol))]


class ExportsTest(unittest.TestCase):
    def test_every_library_exports_only_what_it_declares(self):
        libraries = sorted(path.parent.name for path in PLATFORM.glob("*/include"))
        self.assertEqual(len(libraries), 6)
        for library in libraries:
            with self.subTest(library=library):
                self.assertNotEqual(exported_symbols(library), [])
                self.assertEqual(undeclared(library), [])


if __name__ == "__main__":
    unittest.main()
