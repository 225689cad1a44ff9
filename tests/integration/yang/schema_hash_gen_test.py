"""The generator of the hash constants, on small modules of its own."""

import pathlib
import shutil
import tempfile
import unittest

from paths import BIN, YANG
from processes import run

GENERATOR = BIN / "schema_hash_gen"


class Generator(unittest.TestCase):
    def setUp(self):
        self.directory = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.header = self.directory / "out.h"
        shutil.copy(YANG / "vx-schema.yang", self.directory)

    def generate(self, body, name="vx-some-thing"):
        (self.directory / f"{name}.yang").write_text(
            f'module {name} {{ yang-version 1.1; namespace "urn:{name}"; prefix t;'
            f" import vx-schema {{ prefix vxs; }} {body} }}")
        return self.run_generator(name)

    def run_generator(self, *modules):
        return run(GENERATOR, self.directory, self.header, *modules, check=False)

    def constants(self, body, **options):
        result = self.generate(body, **options)
        self.assertEqual(result.returncode, 0, result.stderr)
        return [line for line in self.header.read_text().splitlines() if line.startswith("inline")]

    def assert_refused(self, result, *texts):
        self.assertEqual(result.returncode, 1, result.stderr)
        for text in texts:
            self.assertIn(text, result.stderr)
        self.assertFalse(self.header.exists())

    def test_names_constants_after_nodes_and_modules(self):
        self.assertEqual(
            self.constants('vxs:ns-hash "0xabcdef01"; container if-option { vxs:tag-hash "0x0012ab34"; }'),
            ["inline constexpr std::uint32_t kTagIfOption = 0x0012ab34;",
             "inline constexpr std::uint32_t kNsSomeThing = 0xabcdef01;"])

    def test_keeps_a_module_name_without_the_usual_prefix(self):
        self.assertEqual(self.constants('vxs:ns-hash "0x1";', name="other"),
                         ["inline constexpr std::uint32_t kNsOther = 0x00000001;"])

    def test_leaves_out_what_has_no_number(self):
        self.assertEqual(self.constants("container a { leaf b { type string; } }"), [])

    def test_gives_one_constant_to_nodes_of_one_name_and_number(self):
        self.assertEqual(
            self.constants('container a { leaf same { type string; vxs:tag-hash "0x0A"; } }'
                           'container b { leaf same { type string; vxs:tag-hash "0xa"; } }'),
            ["inline constexpr std::uint32_t kTagSame = 0x0000000a;"])

    def test_refuses_two_numbers_for_one_name(self):
        result = self.generate('container a { leaf same { type string; vxs:tag-hash "0x1"; } }'
                               'container b { leaf same { type string; vxs:tag-hash "0x2"; } }')
        self.assert_refused(result, "Same has two numbers", "0x00000001", "0x00000002")

    def test_refuses_one_number_for_two_names_however_it_is_written(self):
        for number in ("0xab", "0xAB", "0x00ab"):
            with self.subTest(number=number):
                result = self.generate('container a { vxs:tag-hash "0xab"; }'
                                       f'container b {{ vxs:tag-hash "{number}"; }}')
                self.assert_refused(result, "two nodes have the number 0x000000ab: A and B")

    def test_refuses_what_is_no_number_of_32_bits(self):
        for number in ("", "0x", "12", "0x100000000", "0x12g", "0x-1", "-0x1", "0x 1", "0x1 "):
            with self.subTest(number=number):
                result = self.generate(f'container node {{ vxs:tag-hash "{number}"; }}')
                self.assert_refused(result, f'node: "{number}" is not a hexadecimal number of 32 bits')

    def test_refuses_a_module_that_is_missing_or_broken(self):
        self.assert_refused(self.run_generator("absent"), "cannot load the module absent")
        self.assert_refused(self.generate("container {"), "cannot load the module vx-some-thing")

    def test_says_when_it_cannot_write(self):
        self.header = self.directory / "absent" / "out.h"
        self.assert_refused(self.generate(""), "cannot write")

    def test_says_how_it_is_called(self):
        result = self.run_generator()
        self.assertEqual(result.returncode, 2)
        self.assertIn("usage", result.stderr)
