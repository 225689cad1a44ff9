"""The sources below a folder, and the names by which their headers are included."""

import collections
import os
import re
import shutil
import subprocess

from . import cpp_source
from .standard_headers import CPP, POSIX

SUFFIXES = (".h", ".cc", ".proto")
BUILD_LISTS = "CMakeLists.txt"
NOT_OURS = re.compile(r"build[^/]*/|(?:.*/)?\.[^/]+/")  # build directories, and whatever is hidden
PUBLIC = re.compile(r"platform/[^/]+/include/(?P<name>.+)")


def kept_by_git(root):
    """Paths that git tracks or would add; none if the folder is no checkout."""
    if not (root / ".git").exists() or not shutil.which("git"):
        return []
    command = ["git", "ls-files", "--cached", "--others", "--exclude-standard", "-z"]
    return subprocess.run(command, cwd=root, capture_output=True, text=True).stdout.split("\0")[:-1]


def walked(root):
    for folder, folders, names in os.walk(root):
        here = os.path.relpath(folder, root)
        folders[:] = [name for name in folders if not NOT_OURS.match(os.path.normpath(f"{here}/{name}") + "/")]
        yield from (os.path.normpath(f"{here}/{name}") for name in names)


def listed(root):
    paths = sorted(set(kept_by_git(root)) or walked(root))
    return [path for path in paths if path.endswith((*SUFFIXES, BUILD_LISTS)) and not NOT_OURS.match(path)
            and (root / path).is_file()]


class Tree:
    def __init__(self, root, generated):
        """`generated`: what the names of headers begin with that the build makes and no file here stands for."""
        self.generated = tuple(generated)
        self.texts = {path: (root / path).read_text(encoding="utf-8", errors="replace") for path in listed(root)}
        self.files = [path for path in self.texts if path.endswith(SUFFIXES)]
        self.headers = {*self.files, *(path.removesuffix(".proto") + ".pb.h" for path in self.files
                                       if path.endswith(".proto"))}
        self.public = {match["name"]: file for file in self.files if (match := PUBLIC.match(file))}
        self.endings = collections.defaultdict(list)  # "table/resync.h" and "resync.h": the headers that end so
        for header in sorted(self.headers):
            words = header.split("/")
            for first in range(len(words)):
                self.endings["/".join(words[first:])].append(header)

    def includes(self):
        """Every include with its file."""
        for file in self.files:
            for include in cpp_source.includes(self.texts[file], proto=file.endswith(".proto")):
                yield file, include

    def closest(self, file, name):
        """The header that is meant without a path from the root: the one beside the file, or the only one so called."""
        beside = os.path.normpath(os.path.join(os.path.dirname(file), name))
        found = self.endings.get(os.path.normpath(name), ())
        return beside if beside in self.headers else found[0] if len(found) == 1 else None

    def include_directories(self):
        """Folders of the tree that some CMakeLists.txt names as include directories."""
        found = set()
        for path in (path for path in self.texts if path.endswith(BUILD_LISTS)):
            for call in re.findall(r"target_include_directories\((.*?)\)", self.texts[path], re.DOTALL):
                for base, below in re.findall(r"\$\{(CMAKE_CURRENT|PROJECT)_SOURCE_DIR\}/?([^\"'\s>]*)", call):
                    here = os.path.dirname(path) if base == "CMAKE_CURRENT" else ""
                    found.add(os.path.normpath(os.path.join(here, below)))
        return found

    def resolve(self, file, include, directories):
        """The header that a compiler would find, in trees of every layout: from the root, beside the file, the only one
        so called, or in one of the include directories; None if none or several could be meant."""
        name = include.name
        if not include.quoted and name in CPP | POSIX:
            return None
        if name in self.public or name in self.headers or name.startswith(self.generated):
            return self.public.get(name, name)
        found = [header for header in self.endings.get(os.path.normpath(name), ())
                 if os.path.normpath(header.removesuffix(name)) in directories]
        return self.closest(file, name) or (found[0] if len(found) == 1 else None)
