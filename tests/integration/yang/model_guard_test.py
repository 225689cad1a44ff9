"""What the data model refuses and accepts, on a private datastore. The cases are data: model/cases.json."""

import json
import pathlib
import unittest

from paths import YANG
from private_datastore import PrivateDatastore

CASES = json.loads((pathlib.Path(__file__).parent / "model" / "cases.json").read_text())


def expand(value):
    """"64*a" is 64 times a; "67*l3-a" is filled up to 67 characters behind the l3-."""
    if not isinstance(value, str) or "*" not in value:
        return value
    count, text = value.split("*")
    return text + text[-1] * (int(count) - len(text))


def document(place, value):
    filled = json.dumps(CASES["places"][place]).replace('"VALUE"', json.dumps(expand(value)))
    return json.loads(filled)


def holds(whole, part):
    """Whether a configuration holds what an edit asked for; a deleted entry is one that it does not hold."""
    if isinstance(part, dict):
        return all(holds((whole or {}).get(key), part[key]) for key in part)
    if not isinstance(part, list):
        return whole == part
    entries = whole or []
    return all(not any(entry["name"] == wanted["name"] for entry in entries) if "@" in wanted
               else any(holds(entry, wanted) for entry in entries) for wanted in part)


class Model(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.datastore = cls.enterClassContext(PrivateDatastore())
        cls.datastore.install()

    def setUp(self):
        self.reset()

    def reset(self):
        self.datastore.replace(CASES["base"])

    def content(self, *options):
        return self.datastore.get("/*", *options)

    def test_refuses_what_the_daemon_could_not_take(self):
        before = self.content()
        for group in CASES["refused"]:
            for value in group["values"]:
                with self.subTest(at=group["at"], having=group["with"], value=value):
                    result = self.datastore.edit(document(group["at"], value), check=False)
                    self.assertNotEqual(result.returncode, 0)
                    self.assertIn(group["message"], result.stderr + result.stdout)
                    self.assertEqual(self.content(), before)

    def test_accepts_what_the_daemon_can_take(self):
        for group in CASES["accepted"]:
            for value in group["values"]:
                with self.subTest(at=group["at"], value=value):
                    self.reset()
                    edit = document(group["at"], value)
                    result = self.datastore.edit(edit, check=False)
                    self.assertEqual(result.returncode, 0, result.stderr)
                    content = self.content()
                    self.assertTrue(holds(content, edit), content)

    def test_keeps_the_host_bits_of_an_interface_address(self):
        self.datastore.edit(document("L3 interface address", "10.1.2.3/8"))
        interfaces = self.content()["vx-config:config"]["vx-interface:interface"]["l3"]
        self.assertIn("10.1.2.3/8", [entry.get("ipv4", {}).get("address", {}).get("ip")
                                     for entry in interfaces])

    def test_defaults_are_all_flags_off_and_the_policy_keep(self):
        self.datastore.edit(document("override", "l3-5"))
        relays = self.content("-e", "report-all")["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"]
        defaults = {"option": False, "check": False, "trusted": False, "policy": "keep"}
        for instance in relays:
            self.assertEqual(instance["relay-information"], defaults)
        override = next(entry for entry in relays if entry["name"] == "r")["if-option"][0]
        self.assertEqual(override["relay-information"], defaults)

    def test_takes_the_example_configuration(self):
        example = json.loads((YANG / "example-config.json").read_text())
        self.datastore.replace(example)
        self.assertTrue(holds(self.content(), example), self.content())
