"""docs/architecture.md says what the sources are: which room may use which, and every unit."""

import importlib.machinery
import importlib.util
import re
import sys
import unittest

from documentation import CODE, ROOT, files

PAGE = (ROOT / "docs" / "architecture.md").read_text()
TOPS = ("src", "platform", "protocol", "base", "datastore", "dhcp_manager", "save", "state", "ctl", "yang")


def section(title):
    """The text below a heading, up to the next one of its level."""
    level = title.split(" ")[0]
    _, found, rest = PAGE.partition(f"\n{title}\n")
    if not found:
        raise AssertionError(f"docs/architecture.md has no '{title}'")
    return re.split(rf"\n{level} ", rest)[0]


def rows(text):
    """The cells of a table's rows, without its head."""
    lines = [line.strip().strip("|").split("|") for line in text.splitlines() if line.startswith("|")]
    return lines[2:]


def sources():
    return [path for path in files() if path.parts[0] in TOPS and path.suffix in (".h", ".cc")]


def permitted():
    """The table of scripts/check-layers: the rooms of the product, and which each may include."""
    scripts = ROOT / "scripts"
    loader = importlib.machinery.SourceFileLoader("check_layers", str(scripts / "check-layers"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_layers", loader))
    sys.path.insert(0, str(scripts))
    loader.exec_module(module)
    return {room: set(uses.split()) for room, uses in module.ROOMS.items()
            if not room.startswith(("tests", "bench"))}


class Rooms(unittest.TestCase):
    def test_use_what_the_check_of_layers_permits(self):
        table = rows(section("### Which room may use which"))
        page = {room: set(CODE.findall(row[1])) for row in table for room in CODE.findall(row[0])}
        rooms = permitted()
        self.assertGreater(len(rooms), 10)
        self.assertEqual(page, rooms)


class Units(unittest.TestCase):
    def test_are_all_on_the_page(self):
        page = {}
        for part in re.split(r"\n### ", section("## Units"))[1:]:
            head, _, body = part.partition("\n")
            units = {unit for row in rows(body) for unit in CODE.findall(row[0])}
            for folder in CODE.findall(head):
                page.setdefault(folder, set()).update(units)
        sources_by_folder = {}
        for path in sources():
            folder = "/".join(path.parts[:2]) if path.parts[0] == "platform" else str(path.parent)
            sources_by_folder.setdefault("yang" if path.parts[0] == "yang" else folder, set()).add(path.stem)
        missing = [f"{folder}: {unit}" for folder, units in sources_by_folder.items()
                   for unit in units - page.get(folder, set())]
        self.assertEqual(sorted(missing), [])
        everything = set().union(*sources_by_folder.values()) | {
            path.stem for path in files() if path.suffix == ".proto"}
        gone = [f"{folder}: {unit}" for folder, units in page.items() for unit in units if unit not in everything]
        self.assertEqual(sorted(gone), [])
