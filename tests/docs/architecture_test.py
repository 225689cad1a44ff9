"""docs/architecture.md says what the sources are: which room includes which, and every unit."""

import re
import unittest

from documentation import CODE, ROOT, files

PAGE = (ROOT / "docs" / "architecture.md").read_text()
TOPS = ("src", "platform", "protocol", "base", "dhcp_manager", "state", "ctl", "yang")
INCLUDE = re.compile(r'^#include (?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


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


def public_headers():
    """The platform's public headers, as they are included, with their files."""
    return {"/".join(path.parts[3:]): path
            for path in sources() if path.parts[0] == "platform" and path.parts[2] == "include"}


class Rooms(unittest.TestCase):
    def setUp(self):
        table = rows(section("### Which room may use which"))
        self.uses = {room: set(CODE.findall(row[1])) for row in table for room in CODE.findall(row[0])}
        self.assertGreater(len(self.uses), 10)

    def room_of(self, path):
        """The longest room whose name the path begins with."""
        named = [room for room in self.uses if re.match(rf"{re.escape(room)}[./]", str(path))]
        return max(named, key=len, default=None)

    def includes(self):
        public = public_headers()
        for source in sources():
            for ours, other in INCLUDE.findall((ROOT / source).read_text()):
                if ours:
                    yield source, ours
                elif other in public:
                    yield source, public[other]
                elif other.startswith("vx/"):
                    yield source, "yang/" + other

    def test_hold_every_source(self):
        self.assertEqual([str(path) for path in sources() if self.room_of(path) is None], [])

    def test_use_no_others_than_the_page_says(self):
        surplus = {f"{source}: {included}" for source, included in self.includes()
                   if self.room_of(included) != self.room_of(source)
                   and self.room_of(included) not in self.uses[self.room_of(source)]}
        self.assertEqual(sorted(surplus), [])

    def test_form_no_circle(self):
        left = dict(self.uses)
        while lowest := [room for room, used in left.items() if not used & left.keys()]:
            for room in lowest:
                del left[room]
        self.assertEqual(sorted(left), [])


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
