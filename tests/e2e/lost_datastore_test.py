"""The datastore goes away under a stack that runs: every process says so, and all go on with what takes its place.

Wipes of the shared memory at any moment are in no_lost_commits_test.py.
"""

import os
import pathlib
import re
import shutil
import signal
import unittest

from committers import Committer, read_running
from configuration import configuration, relay, server_list
from disturbed_stack import DisturbedStack
from processes import wait_until

PROCESSES = ("daemon", "state", "saver")
APPLICATIONS = {"dhcp-relay-app", "dhcp-relay-saved", "dhcp-relay-stated"}
LOST = "the repository of the datastore is gone"
LONG = 60000  # ms


class LostDatastore(unittest.TestCase):
    def setUp(self):
        self.stack = DisturbedStack(self)
        self.stack.up(config=configuration(relay("r1")))
        self.stack.wait_saved()
        self.repository = pathlib.Path(self.stack.environment()["SYSREPO_REPOSITORY_PATH"])
        self.away = self.stack.directory / "away"

    def wait_until_all_tell(self):
        wait_until(lambda: {fault["application"] for fault in self.stack.faults() if LOST in fault["text"]}
                   == APPLICATIONS, "all tell of the loss")

    def assert_all_go_on(self):
        wait_until(lambda: all(self.stack.is_subscribed(name) for name in ("daemon", "state")), "all are back")
        self.stack.wait_in_sync()
        self.stack.edit(configuration(relay("r2", server=server_list("10.0.0.1"))))
        wait_until(lambda: self.stack.instance_names() == ["r1", "r2"], "the manager has the commit")
        self.stack.wait_saved()


class Repository(LostDatastore):
    def test_that_is_renamed_and_comes_back_is_used_again(self):
        self.repository.rename(self.away)
        self.wait_until_all_tell()
        self.assertEqual(self.stack.tool("dhcp-relayctl", "status", check=False).returncode, 1)
        self.assertFalse(self.repository.exists())
        self.away.rename(self.repository)
        self.assert_all_go_on()

    def test_that_is_removed_is_used_again_when_a_copy_takes_its_place(self):
        shutil.copytree(self.repository, self.away, ignore=shutil.ignore_patterns("sr_evpipe*", "*.lock"))
        shutil.rmtree(self.repository)
        self.wait_until_all_tell()
        self.away.rename(self.repository)
        self.assert_all_go_on()

    def test_in_the_place_of_another_is_noticed(self):
        shutil.copytree(self.repository, self.away, ignore=shutil.ignore_patterns("sr_evpipe*", "*.lock"))
        self.repository.rename(self.stack.directory / "old")
        self.away.rename(self.repository)
        self.wait_until_all_tell()
        self.assert_all_go_on()


class KilledCommitter(LostDatastore):
    """Connections have numbers, which begin anew in a new datastore."""

    def setUp(self):
        super().setUp()
        self.log = self.stack.directory / "committers.log"

    def committer(self):
        committer = Committer(self.stack.environment(), self.log)
        self.addCleanup(committer.kill)
        return committer

    def lock_of_daemon(self):
        """The file by which its connection is known to live."""
        links = [os.readlink(file) for file in pathlib.Path(f"/proc/{self.stack.pid('daemon')}/fd").glob("*")]
        return pathlib.Path(next(link for link in links if re.search(r"/conn_\d+\.lock$", link)))

    def connect_with_number_of(self, lock):
        before = lock.stat().st_ino
        while True:
            committer = self.committer()
            committer.connect()
            if lock.stat().st_ino != before:
                return committer

    def test_with_the_number_of_the_daemons_lost_connection_does_not_keep_it_away(self):
        lock = self.lock_of_daemon()
        for name in PROCESSES:
            os.kill(self.stack.pid(name), signal.SIGSTOP)
            self.addCleanup(os.kill, self.stack.pid(name), signal.SIGCONT)
        self.stack.wipe_shared_memory()
        subscriber = self.committer()
        subscriber.subscribe(LONG)
        committer = self.connect_with_number_of(lock)
        committer.start({"vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [{"name": "r2"}]}}}, LONG)
        wait_until(lambda: "r2" in str(read_running(self.stack.environment())), "the commit is stored")
        committer.kill()
        subscriber.kill()
        for name in PROCESSES:
            os.kill(self.stack.pid(name), signal.SIGCONT)
        wait_until(lambda: self.stack.is_subscribed("daemon"), "the daemon has subscribed anew")
        self.stack.edit(configuration(relay("r3", server=server_list("10.0.0.1"))))
        wait_until(lambda: "r3" in self.stack.instance_names(), "the manager has the commit")


del LostDatastore
