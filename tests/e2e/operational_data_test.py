"""The process that serves the manager's state as operational data."""

import os
import pathlib
import re
import select
import shutil
import signal
import subprocess
import unittest

from committers import Committer
from configuration import configuration, relay
from disturbed_stack import DisturbedStack
from paths import BIN
from processes import LIMIT, wait_until
from programs import Programs

READ = ("sysrepocfg", "-X", "-d", "operational", "-f", "json", "-x", "/vx-dhcp-relay-state:dhcp-relay-state")
FAULT = "the shared memory of the datastore is gone; connecting anew"


class StateProcess(Programs, unittest.TestCase):
    def state(self, *arguments):
        return self.run_program("dhcp-relay-stated", *arguments)

    def test_prints_its_help_and_version_and_refuses_other_arguments(self):
        self.assertIn("usage:", self.state("--help").stdout)
        self.assertRegex(self.state("--version").stdout, r"^dhcp-relay-stated \d+\.\d+\.\d+\n$")
        self.assertEqual(self.state("--fast").returncode, 2)

    def test_waits_for_a_datastore_and_makes_none(self):
        repository = self.directory / "sysrepo"
        process = subprocess.Popen([BIN / "dhcp-relay-stated"], stderr=subprocess.PIPE, text=True,
                                   env=dict(self.environment, SYSREPO_REPOSITORY_PATH=str(repository)))
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        self.assertRegex(process.stderr.readline(), "no operational data, trying again: .*: there is none")
        process.send_signal(signal.SIGTERM)
        self.assertEqual(process.wait(timeout=LIMIT), 0)
        self.assertFalse(repository.exists())


class LostDatastore(unittest.TestCase):
    """The shared memory or the repository is removed under a stack that runs."""

    def setUp(self):
        self.stack = DisturbedStack(self)
        self.stack.up(config=configuration(relay("r1")))
        self.wait_until_served()

    def wait_until_served(self):
        wait_until(lambda: "dhcp-relay-state" in self.stack.tool(*READ).stdout, "operational data is served")

    def files(self):
        """The pipes of subscriptions, and the locks by which connections are known to live."""
        return {*self.repository().glob("sr_evpipe*"), *self.repository().glob("conn/*.lock")}

    def repository(self):
        return pathlib.Path(self.stack.environment()["SYSREPO_REPOSITORY_PATH"])

    def files_of_state_process(self):
        links = {os.readlink(file) for file in pathlib.Path(f"/proc/{self.stack.pid('state')}/fd").glob("*")}
        return {file for file in self.files() if str(file) in links}

    def stop(self, *names):
        """The processes stand still until the function that is returned is called."""
        pids = [self.stack.pid(name) for name in names]

        def go_on():
            for pid in pids:
                os.kill(pid, signal.SIGCONT)
        for pid in pids:
            os.kill(pid, signal.SIGSTOP)
        self.addCleanup(go_on)
        return go_on

    def subscribe_others(self, count):
        for _ in range(count):
            committer = Committer(self.stack.environment(), self.stack.directory / "committers.log")
            self.addCleanup(committer.kill)
            committer.subscribe(0)

    def faults(self):
        return [fault["text"] for fault in self.stack.faults() if fault["application"] == "dhcp-relay-stated"]

    def read_and_kill(self):
        """Kills a reader whose request waits."""
        reader = subprocess.Popen(READ, env=self.stack.environment(), stdout=subprocess.DEVNULL)
        self.addCleanup(reader.wait)
        self.addCleanup(reader.kill)
        pipe = next(file for file in self.files_of_state_process() if "pipe" in file.name)
        with open(os.open(pipe, os.O_RDWR | os.O_NONBLOCK), "rb") as file:
            wait_until(lambda: select.select([file], [], [], 0)[0], "a request is announced")
        reader.kill()
        reader.wait()

    def test_is_noticed_and_what_took_its_place_is_served(self):
        self.stack.wipe_shared_memory()
        self.wait_until_served()
        self.assertEqual(self.faults(), [FAULT])
        self.assertEqual((self.stack.directory / "state.log").read_text().count(FAULT), 1)

    def test_request_of_a_reader_is_not_taken(self):
        go_on = self.stop("state")
        self.read_and_kill()
        self.stack.wipe_shared_memory()
        go_on()
        self.wait_until_served()
        self.assertEqual(self.faults(), [FAULT])

    def test_repository_that_took_the_place_of_another_is_served(self):
        self.stop("saver")  # which writes to it
        copy = self.stack.directory / "copy"
        shutil.copytree(self.repository(), copy, ignore=shutil.ignore_patterns("sr_evpipe*", "*.lock"))
        shutil.rmtree(self.repository())
        wait_until(self.faults, "the state process tells of the loss")
        self.assertEqual(self.faults(), ["the repository of the datastore is gone; connecting anew"])
        copy.rename(self.repository())
        self.wait_until_served()

    def test_leaves_the_files_of_those_alone_who_connected_before(self):
        names = self.files_of_state_process()
        self.assertEqual(len(names), 2, names)
        go_on = self.stop("daemon", "saver", "state")
        self.stack.wipe_shared_memory()
        # Others get these names, which are numbers, in the datastore that takes the place of the lost one.
        self.subscribe_others(max(int(re.search(r"\d+", name.name)[0]) for name in names))
        self.assertLessEqual(names, self.files())
        go_on()
        self.wait_until_served()
        self.assertLessEqual(names, self.files())
