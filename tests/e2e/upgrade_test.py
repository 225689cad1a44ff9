"""New models, under a running stack and when a stack starts."""

import shutil
import unittest

from configuration import configuration, relay, server_list
from model_copies import NEWER, copy_models, with_leaf
from paths import SOURCE, YANG
from processes import wait_until
from stack import Stack

INSTALL = SOURCE / "scripts" / "install-models"
CONFIGURED = configuration(relay("r1", vrf="red", server=server_list("10.0.0.1")), vrfs={"red": 7})


class RunningStack(unittest.TestCase):
    def test_takes_new_models_and_goes_on(self):
        stack = Stack(self)
        stack.up(config=CONFIGURED)
        table = stack.table()
        newer = copy_models(stack.directory / "newer", NEWER, {"vx-interface": with_leaf("note", behind="list l3")})
        said = stack.tool(INSTALL, newer).stdout
        self.assertEqual(said.count(f" to {NEWER}\n"), len(list(YANG.glob("*.yang"))), said)
        self.assertEqual(stack.table(), table)
        stack.edit(configuration(relay("r2", server=server_list("10.0.0.2"))))
        stack.edit({"vx-config:config": {"vx-interface:interface": {"l3": [{"name": "5", "note": "new"}]}}})
        wait_until(lambda: stack.instance_names() == ["r1", "r2"], "the commit has reached the manager")
        self.assertEqual(stack.faults(), [])


class StartingStack(unittest.TestCase):
    """What the last stack saved, and models that are not those it was saved with."""

    def setUp(self):
        self.stack = Stack(self)
        self.stack.up(config=CONFIGURED)
        self.table = self.stack.table()
        self.assertEqual(self.stack.script("down").returncode, 0)
        self.repository = self.stack.directory / "sysrepo"
        self.identity = self.repository.stat().st_ino

    def change_models(self):
        (self.stack.directory / "models").write_text("what another release had\n")

    def names(self):
        return [path.name for path in self.stack.directory.iterdir() if path.name.startswith("sysrepo")]

    def test_makes_a_new_datastore_with_the_saved_configuration(self):
        self.change_models()
        self.stack.up()
        self.assertNotEqual(self.repository.stat().st_ino, self.identity)
        self.assertEqual(self.stack.table(), self.table)
        self.assertEqual(self.names(), ["sysrepo"])

    def test_keeps_the_old_datastore_when_the_models_refuse_its_configuration(self):
        saved = self.repository / "data" / "vx-config.startup"
        saved.write_bytes(saved.read_bytes().replace(b"10.0.0.1", b"127.0.0.1"))
        self.change_models()
        result = self.stack.script("up")
        self.assertNotEqual(result.returncode, 0)
        self.assertIn("A loopback address cannot be the address of a DHCP server", result.stderr)
        self.assertIn("stays as it was", result.stderr)
        self.assertEqual(self.repository.stat().st_ino, self.identity)
        self.assertIn(b"127.0.0.1", saved.read_bytes())
        self.assertEqual(self.names(), ["sysrepo"])
        self.assertEqual(self.stack.shared_memory(), [])

    def test_returns_to_the_old_datastore_after_a_kill_between_the_two(self):
        self.change_models()
        self.repository.rename(self.stack.directory / "sysrepo.old")
        shutil.copytree(self.stack.directory / "sysrepo.old", self.stack.directory / "sysrepo.new")
        (self.stack.directory / "sysrepo.new" / "data" / "vx-config.startup").unlink()
        self.stack.up()
        self.assertEqual(self.stack.table(), self.table)
        self.assertEqual(self.names(), ["sysrepo"])


class ClosedDirectory(unittest.TestCase):
    def test_that_keeps_the_managers_account_out_is_named_before_anything_starts(self):
        stack = Stack(self)
        closed = stack.directory / "closed"
        stack.directory.chmod(0o755)
        closed.mkdir(mode=0o700)
        self.addCleanup(setattr, stack, "directory", stack.directory)
        self.addCleanup(stack.script, "down")
        stack.directory = closed / "inner" / "stack"
        result = stack.script("up")
        self.assertEqual(result.returncode, 1)
        self.assertIn(f"the account dhcp-manager may not enter {closed} (drwx------ root root)", result.stderr)
        self.assertIn(f"chmod o+x {closed}", result.stderr)
        self.assertEqual(list(stack.directory.iterdir()), [])
        closed.chmod(0o711)
        stack.up(config=CONFIGURED)
