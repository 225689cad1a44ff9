"""A disk that is full or read-only: the saver tells so, keeps what it has, and goes on by itself. Needs root, for a
file system of its own.
"""

import ctypes
import os
import signal
import unittest

from paths import BIN
from processes import run, wait_until
from saver import SavedDatastore, configuration

CLONE_NEWNS = 0x00020000
SIZE = 2 << 20
CONNECTIONS = 32 << 10  # for the files that a committer needs to connect
FAILURE = "commits are not saved, trying again: "


def enter_mount_namespace():
    """Mounts of this process and its children are not seen by others, and end with them."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(CLONE_NEWNS) != 0:
        raise OSError(ctypes.get_errno(), "unshare")
    run("mount", "--make-rprivate", "/")


def large_configuration(name):
    """It takes several times the room that a committer needs."""
    relays = [{"name": f"{name}-{number}", "vrf": name, "relay-information": {"option": True}}
              for number in range(1000)]
    document = configuration(name, 7)
    document["vx-config:config"]["vx-dhcp-relay:dhcp"]["relay"] = relays
    return document


class FullDisk(SavedDatastore, unittest.TestCase):
    def prepare(self):
        enter_mount_namespace()
        self.repository.mkdir()
        run("mount", "-t", "tmpfs", "-o", f"size={SIZE}", "tmpfs", self.repository)
        self.addCleanup(run, "umount", "-l", self.repository)

    def fill(self, leave):
        """Leaves room for that many bytes, rounded up to pages."""
        with open(self.repository / "filler", "wb") as filler:
            status = os.statvfs(self.repository)
            filler.write(b"x" * (status.f_bavail * status.f_frsize - leave))

    def empty(self):
        (self.repository / "filler").unlink()

    def wait_failed(self):
        wait_until(lambda: self.commits()["state"] == "failed", "the saver tells of the full disk")

    def test_is_told_once_and_what_was_saved_stays_until_it_heals(self):
        self.datastore.edit(configuration("blue", 8))
        self.start_and_wait()
        saved = self.startup()
        self.fill(leave=CONNECTIONS)
        self.datastore.edit(large_configuration("red"))
        self.wait_failed()
        self.assertIn("No space left on device", self.commits()["reason"])
        self.assertEqual(self.startup(), saved)
        self.datastore.edit(configuration("green", 9))
        self.empty()
        self.wait_settled()
        told = [fault for fault in self.faults() if fault.startswith(FAILURE)]
        self.assertEqual(len(told), 1, self.faults())

    def test_that_takes_the_pending_file_alone_loses_nothing(self):
        self.datastore.edit(configuration("blue", 8))
        self.start_and_wait()
        document = large_configuration("red")
        size = len(str(document))
        self.fill(leave=size + size // 4)
        self.datastore.edit(document)
        self.wait_failed()
        self.assertIn("No space left on device", self.commits()["reason"])
        committed = self.datastore.get()
        self.assertTrue(self.pending())
        self.kill_everything()
        self.empty()
        # The datastore does not sync its files: any of them may be cut short.
        run("truncate", "-s", "10", self.repository / "data" / "vx-config.startup")
        run("truncate", "-s", "0", self.repository / "data" / "metacli-internal.startup")
        self.assertEqual(self.saver("--recover").returncode, 0)
        self.assertEqual(self.datastore.get(), committed)
        self.assertTrue(self.in_step())

    def test_that_takes_the_pending_file_alone_still_lets_it_be_restored(self):
        self.start_and_wait()
        document = large_configuration("red")
        size = len(str(document))
        self.fill(leave=size + size // 4)
        self.datastore.edit(document)
        self.wait_failed()
        committed = self.datastore.get()
        self.kill_everything()
        self.assertEqual(self.saver("--recover").returncode, 0)
        self.assertEqual(self.datastore.get(), committed)
        self.start()
        self.wait_failed()
        self.empty()
        self.wait_settled()
        self.assertEqual(self.startup(), committed)

    def kill_everything(self):
        """As a power cut does."""
        for process in self.started:
            process.kill()
            process.wait()
        self.remove_shared_memory()


class ReadOnlyFileSystem(SavedDatastore, unittest.TestCase):
    def prepare(self):
        enter_mount_namespace()

    def make_read_only(self):
        """For whoever opens a file from now on."""
        run("mount", "--bind", self.repository, self.repository)
        self.addCleanup(run, "umount", "-l", self.repository, check=False)
        run("mount", "-o", "remount,bind,ro", self.repository)

    def shown_commits(self):
        shown = run(BIN / "dhcp-relayctl", "status", check=False, env=self.environment).stdout
        return next(line for line in shown.splitlines() if line.startswith("commits:"))

    def test_is_told_with_its_reason_and_heals(self):
        process = self.start_and_wait()
        saved = self.startup()
        process.send_signal(signal.SIGSTOP)
        self.datastore.edit(configuration("red", 7))
        committed = self.datastore.get()
        self.make_read_only()
        process.send_signal(signal.SIGCONT)
        wait_until(lambda: self.commits()["state"] == "failed", "the saver tells that it cannot write")
        self.assertRegex(self.shown_commits(), "not saved.*Read-only file system")
        self.assertEqual(len(self.faults()), 1, self.faults())
        self.assertRegex(self.faults()[0], FAILURE + ".*Read-only file system")
        run("umount", "-l", self.repository)
        self.wait_settled()
        self.assertNotEqual(committed, saved)
        self.assertEqual(self.startup(), committed)
        self.assertEqual(len(self.faults()), 1, self.faults())


class NoFile(SavedDatastore, unittest.TestCase):
    def test_that_can_be_written_is_told_with_its_reason_and_heals(self):
        process = self.start_and_wait()
        obstacle = self.repository / "dhcp-relay-saved.pending.new"
        obstacle.mkdir()
        self.datastore.edit(configuration("red", 7))
        wait_until(lambda: self.commits()["state"] == "failed", "the saver tells of the obstacle")
        self.assertIn("Is a directory", self.commits()["reason"])
        obstacle.rmdir()
        self.wait_settled()
        self.assertEqual(self.stop(process), 0)

    def test_that_can_be_written_ends_the_saver_with_1(self):
        process = self.start_and_wait()
        (self.repository / "dhcp-relay-saved.pending.new").mkdir()
        self.datastore.edit(configuration("red", 7))
        self.assertEqual(self.stop(process), 1)
        self.assertEqual(len(self.faults()), 1)
