"""A commit that has returned is on the disk soon after, and the running datastore is made of it at the next start."""

import json
import os
import unittest

from processes import run, wait_until
from saver import SavedDatastore, configuration

OWN = "/vx-config:config | /metacli-internal:internal"


class Saves(SavedDatastore, unittest.TestCase):
    def test_brings_a_commit_of_two_modules_to_the_startup_datastore(self):
        self.start_and_wait()
        self.datastore.edit(configuration("red", 7))
        self.wait_settled()
        self.assertEqual(self.datastore.get(OWN, datastore="startup"), configuration("red", 7))

    def test_brings_every_commit_of_a_long_row(self):
        self.start_and_wait()
        for number in range(1, 21):
            self.datastore.edit(configuration(f"vrf-{number}", number))
        self.wait_settled()
        relays = self.startup()["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"]
        self.assertEqual(len(relays), 20)

    def test_saves_what_was_committed_before_its_start(self):
        self.datastore.edit(configuration("red", 7))
        self.start_and_wait()
        self.assertEqual(self.datastore.get(OWN, datastore="startup"), configuration("red", 7))

    def test_saves_a_configuration_that_was_emptied(self):
        self.datastore.edit(configuration("red", 7))
        self.start_and_wait()
        self.datastore.replace({})
        self.wait_settled()
        self.assertEqual(self.datastore.get(OWN, datastore="startup"), {})

    def test_saves_modules_that_are_not_the_relays(self):
        self.start_and_wait()
        self.datastore.edit({"ietf-netconf-acm:nacm": {"enable-nacm": False}})
        self.wait_settled()
        self.assertIs(self.startup()["ietf-netconf-acm:nacm"]["enable-nacm"], False)

    def test_keeps_a_default_that_was_set(self):
        self.start_and_wait()
        document = configuration("red", 7)
        document["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"][0]["relay-information"] = {"check": False}
        self.datastore.edit(document)
        self.wait_settled()
        self.remove_shared_memory()
        self.assertEqual(self.datastore.get(OWN), document)

    def test_saves_on_sigterm_what_is_not_saved_yet(self):
        process = self.start_and_wait()
        self.datastore.edit(configuration("red", 7))
        self.assertEqual(self.stop(process), 0)
        self.assertTrue(self.in_step())
        self.assertEqual(self.commits()["state"], "not-running")
        self.assertEqual(self.faults(), [])

    def test_writes_nothing_when_nothing_is_to_be_saved(self):
        self.datastore.edit(configuration("red", 7))
        self.stop(self.start_and_wait())
        before = self.files()
        self.assertEqual(self.stop(self.start_and_wait()), 0)
        self.assertEqual(self.saver("--once").returncode, 0)
        self.assertEqual(self.files(), before)

    def test_waits_for_a_datastore_and_makes_none(self):
        self.repository.rename(self.repository.with_name("away"))
        self.start()
        wait_until(lambda: self.commits()["state"] == "failed", "the saver tells that there is no datastore")
        self.assertIn("there is none", self.commits()["reason"])
        self.assertFalse(self.repository.exists())
        self.repository.with_name("away").rename(self.repository)
        self.wait_settled()

    def test_does_not_run_twice(self):
        self.start_and_wait()
        for option in ((), ("--once",), ("--recover",)):
            result = self.saver(*option)
            self.assertEqual(result.returncode, 1, option)
            self.assertIn("another saver", result.stderr)


class LosesTheDatastore(SavedDatastore, unittest.TestCase):
    LOST = "the shared memory of the datastore is gone; connecting anew"

    def setUp(self):
        super().setUp()
        self.datastore.edit(configuration("red", 7))
        self.process = self.start_and_wait()
        self.saved = self.startup()

    def test_keeps_what_was_saved_when_shared_memory_is_wiped(self):
        self.remove_shared_memory()
        wait_until(lambda: self.LOST in self.faults(), "the saver tells of the loss")
        self.wait_settled()
        self.assertEqual(self.startup(), self.saved)
        self.datastore.edit(configuration("blue", 8))
        self.wait_settled()
        self.assertEqual(self.faults(), [self.LOST])

    def test_saves_what_others_committed_to_the_datastore_that_took_its_place(self):
        self.remove_shared_memory()
        self.datastore.edit(configuration("blue", 8))
        wait_until(lambda: self.LOST in self.faults(), "the saver tells of the loss")
        self.wait_settled()
        relays = self.startup()["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"]
        self.assertEqual(sorted(entry["name"] for entry in relays), ["blue", "red"])

    def test_keeps_what_was_saved_when_a_part_of_shared_memory_goes(self):
        for part in ("_ext", "_mod"):
            told = len(self.faults())
            os.unlink(f"/dev/shm/{self.environment['SYSREPO_SHM_PREFIX']}{part}")
            wait_until(lambda before=told: self.LOST in self.faults()[before:], "the saver tells of the loss")
            wait_until(lambda: self.commits()["state"] == "failed", "the saver waits")
            self.remove_shared_memory()
            self.wait_settled()
            self.assertEqual(self.startup(), self.saved)

    def test_waits_for_a_repository_that_was_renamed(self):
        away = self.repository.with_name("away")
        self.repository.rename(away)
        wait_until(lambda: self.faults() == [self.LOST.replace("shared memory", "repository")], "the loss is told")
        wait_until(lambda: self.commits()["state"] == "failed", "the saver waits")
        self.assertFalse(self.repository.exists())
        away.rename(self.repository)
        self.datastore.edit(configuration("blue", 8))
        self.wait_settled()
        self.assertIn("blue", str(self.startup()))

    def test_keeps_what_was_saved_when_it_is_stopped_right_after_the_loss(self):
        self.remove_shared_memory()
        self.assertEqual(self.stop(self.process), 0)
        self.assertFalse(self.shared_memory())
        self.assertEqual(self.startup(), self.saved)


class SavesOnce(SavedDatastore, unittest.TestCase):
    def test_saves_what_shared_memory_holds_after_everybody_was_killed(self):
        self.start_and_wait().kill()
        self.datastore.edit(configuration("red", 7))
        result = self.saver("--once")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.remove_shared_memory()
        self.assertEqual(self.datastore.get(OWN), configuration("red", 7))

    def test_makes_no_datastore_in_shared_memory(self):
        self.remove_shared_memory()
        self.assertEqual(self.saver("--once").returncode, 0)
        self.assertEqual(self.shared_memory(), [])

    def test_keeps_what_was_saved_when_shared_memory_is_damaged(self):
        self.datastore.edit(configuration("red", 7))
        self.assertEqual(self.saver("--once").returncode, 0)
        before = self.files()
        running = f"/dev/shm/{self.environment['SYSREPO_SHM_PREFIX']}_vx-config.running"
        for damage in (["truncate", "-s", "0"], ["truncate", "-s", "10"], ["rm"]):
            run(*damage, running)
            result = self.saver("--once")
            self.assertEqual(result.returncode, 1)
            self.assertIn("cannot read the datastore", result.stderr)
        self.assertEqual(self.files(), before)

    def test_saves_nothing_when_it_may_not_read_all(self):
        self.datastore.edit(configuration("red", 7))
        everything = [self.repository, *(f"/dev/shm/{name}" for name in self.shared_memory())]
        run("chown", "-R", "nobody", self.datastore.directory, *everything)
        private = [*(self.repository / "data").glob("metacli-internal.*"),
                   f"/dev/shm/{self.environment['SYSREPO_SHM_PREFIX']}_metacli-internal.running"]
        run("chown", "root", *private)
        run("chmod", "600", *private)
        before = self.files()
        result = self.saver("--once", prefix=("setpriv", "--reuid=nobody", "--clear-groups"))
        self.assertEqual(result.returncode, 1)
        self.assertIn("this account may not read and write the module metacli-internal", result.stderr)
        self.assertEqual(self.files(), before)
        run("chown", "nobody", *private)
        result = self.saver("--once", prefix=("setpriv", "--reuid=nobody", "--clear-groups"))
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertTrue(self.in_step())


class Recovers(SavedDatastore, unittest.TestCase):
    def test_lets_an_edit_of_the_startup_datastore_stand_when_nothing_is_pending(self):
        self.datastore.edit(configuration("red", 7))
        self.stop(self.start_and_wait())
        self.remove_shared_memory()
        document = configuration("blue", 8)
        self.datastore.run("sysrepocfg", "--import", "-d", "startup", "-f", "json", stdin=json.dumps(document))
        self.remove_shared_memory()
        self.assertEqual(self.saver("--recover").returncode, 0)
        self.assertEqual(self.shared_memory(), [])
        self.assertEqual(self.datastore.get(OWN), document)

    def test_ignores_a_pending_file_that_is_not_whole(self):
        self.datastore.edit(configuration("red", 7))
        self.stop(self.start_and_wait())
        self.remove_shared_memory()
        (self.repository / "dhcp-relay-saved.pending").write_text('dhcp-relay-saved 1 g 100\n{"vx-config')
        self.assertEqual(self.saver("--recover").returncode, 0)
        self.assertEqual(self.datastore.get(OWN), configuration("red", 7))
