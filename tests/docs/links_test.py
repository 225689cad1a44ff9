"""What the documentation refers to exists: links, sections, files and names of the code."""

import re
import unittest

from documentation import ROOT, code_words, files, is_generated, pages, without_blocks

LINK = re.compile(r"\[[^\]]*\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ +(.*)$", re.MULTILINE)
NAME = re.compile(r"(?:\w+::)*([A-Z][a-z]\w*)(?:\(\))?")
SOURCE_SUFFIXES = (".h", ".cc", ".proto", ".yang", ".py", ".txt", ".cmake")
UNIT_SUFFIXES = ("", ".h", ".cc", ".proto")


def anchor(heading):
    """The name that a heading gets in a link."""
    kept = re.sub(r"[^\w\- ]", "", heading.strip().lower())
    return kept.replace(" ", "-")


def anchors(text):
    return {anchor(heading) for heading in HEADING.findall(without_blocks(text))}


def is_path(word):
    """Whether a word is meant as a path from the root of the tree."""
    top = word.split("/")[0]
    return "/" in word and not is_generated(top) and (ROOT / top).is_dir() and top not in ("", ".", "..")


def exists(path):
    if "*" in path:
        return any(ROOT.glob(path))
    return any((ROOT / (path.rstrip("/") + suffix)).exists() for suffix in UNIT_SUFFIXES)


class Links(unittest.TestCase):
    def setUp(self):
        self.pages = pages()
        self.assertGreater(len(self.pages), 5)

    def links(self):
        for page, text in self.pages.items():
            for target in LINK.findall(without_blocks(text)):
                if "://" not in target:
                    path, _, section = target.partition("#")
                    yield page, target, (ROOT / page.parent / path).resolve() if path else ROOT / page, section

    def test_lead_to_files(self):
        self.assertEqual([f"{page}: {target}" for page, target, path, _ in self.links() if not path.exists()], [])

    def test_lead_to_sections(self):
        missing = [f"{page}: {target}" for page, target, path, section in self.links()
                   if section and path.exists() and section not in anchors(path.read_text())]
        self.assertEqual(missing, [])


class Code(unittest.TestCase):
    def test_paths_exist(self):
        missing = [f"{page}: {word}" for page, text in pages().items() for words in code_words(text)
                   for word in words.split()[:1] if is_path(word) and not exists(word)]
        self.assertEqual(missing, [])

    def test_names_exist(self):
        """Names of types, functions and tests, in upper camel case."""
        sources = "\n".join((ROOT / path).read_text() for path in files()
                            if path.suffix in SOURCE_SUFFIXES)
        known = set(re.findall(r"\w+", sources))
        missing = [f"{page}: {word}" for page, text in pages().items() for word in code_words(text)
                   if (name := NAME.fullmatch(word)) and name[1] not in known]
        self.assertEqual(missing, [])
