"""What the data model refuses and accepts, on a private datastore. The cases are data: model/cases.json."""

import json
import os
import pathlib
import shutil
import subprocess
import unittest

from leftovers import make_directory, remove_leftovers

SOURCE = pathlib.Path(__file__).resolve().parents[2]
TOOLS = SOURCE / ".deps" / "prefix" / "bin"
CASES = json.loads((SOURCE / "tests" / "integration" / "model" / "cases.json").read_text())


KIND = "vxm"


def remove_shared_memory(directory):
    prefix = shared_memory_prefix(directory)
    for name in os.listdir("/dev/shm"):
        if name.startswith((prefix + "_", prefix + "sub_")):
            os.unlink(f"/dev/shm/{name}")


def shared_memory_prefix(directory):
    return KIND + directory.name.split(".")[1]


class Datastore:
    """A private datastore with the relay's models and the base configuration."""

    def __init__(self):
        remove_leftovers(KIND, remove_shared_memory)
        self.directory = make_directory(KIND)
        self.environment = dict(os.environ, SYSREPO_REPOSITORY_PATH=str(self.directory / "repository"),
                                SYSREPO_SHM_PREFIX=shared_memory_prefix(self.directory),
                                PATH=f"{TOOLS}:{os.environ['PATH']}")
        self.run(SOURCE / "scripts" / "install-models", SOURCE / "yang")
        self.reset()

    def close(self):
        remove_shared_memory(self.directory)
        shutil.rmtree(self.directory)

    def run(self, *command, stdin=None, check=True):
        result = subprocess.run(command, env=self.environment, capture_output=True, text=True,
                                input=stdin, timeout=60, check=False)
        if check and result.returncode != 0:
            raise AssertionError(f"{command} failed: {result.stderr}")
        return result

    def reset(self):
        self.run("sysrepocfg", "--import", "-d", "running", "-f", "json", stdin=json.dumps(CASES["base"]))

    def edit(self, document):
        return self.run("sysrepocfg", "--edit", "-d", "running", "-f", "json",
                        stdin=json.dumps(document), check=False)

    def content(self, *options):
        return json.loads(self.run("sysrepocfg", "-X", "-d", "running", "-f", "json", *options).stdout)


def expand(value):
    """"64*a" is 64 times a; "67*l3-a" is filled up to 67 characters behind the l3-."""
    if not isinstance(value, str) or "*" not in value:
        return value
    count, text = value.split("*")
    return text + text[-1] * (int(count) - len(text))


def document(place, value):
    filled = json.dumps(CASES["places"][place]).replace('"VALUE"', json.dumps(expand(value)))
    return json.loads(filled)


class Model(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.datastore = Datastore()
        cls.addClassCleanup(cls.datastore.close)

    def test_refuses_what_the_daemon_could_not_take(self):
        before = self.datastore.content()
        for group in CASES["refused"]:
            for value in group["values"]:
                with self.subTest(at=group["at"], having=group["with"], value=value):
                    result = self.datastore.edit(document(group["at"], value))
                    self.assertNotEqual(result.returncode, 0)
                    self.assertIn(group["message"], result.stderr + result.stdout)
        self.assertEqual(self.datastore.content(), before)

    def test_accepts_what_the_daemon_can_take(self):
        for group in CASES["accepted"]:
            for value in group["values"]:
                with self.subTest(at=group["at"], value=value):
                    self.datastore.reset()
                    result = self.datastore.edit(document(group["at"], value))
                    self.assertEqual(result.returncode, 0, result.stderr)

    def test_keeps_the_host_bits_of_an_interface_address(self):
        self.datastore.reset()
        self.datastore.edit(document("L3 interface address", "10.1.2.3/8"))
        interfaces = self.datastore.content()["vx-config:config"]["vx-interface:interface"]["l3"]
        self.assertIn("10.1.2.3/8", [entry.get("ipv4", {}).get("address", {}).get("ip")
                                     for entry in interfaces])

    def test_defaults_are_all_flags_off_and_the_policy_keep(self):
        self.datastore.reset()
        self.datastore.edit(document("override", "l3-5"))
        relays = self.datastore.content("-e", "report-all")["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"]
        defaults = {"option": False, "check": False, "trusted": False, "policy": "keep"}
        for instance in relays:
            self.assertEqual(instance["relay-information"], defaults)
        override = next(entry for entry in relays if entry["name"] == "r")["if-option"][0]
        self.assertEqual(override["relay-information"], defaults)


if __name__ == "__main__":
    unittest.main()
