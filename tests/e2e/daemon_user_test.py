"""The daemon as a user of its own."""

import pathlib
import subprocess
import unittest

from configuration import configuration, relay, server_list
from paths import BIN
from processes import wait_until
from service import served_meanwhile
from topology import Topology

USER = "daemon"  # an account that every Debian has, with a group of its own
OTHER = "games"


def as_user(user):
    return ["setpriv", "--reuid", user, "--regid", USER, "--clear-groups"]


class DaemonUser(unittest.TestCase):
    def setUp(self):
        self.top = Topology(self, manager_options=f"--daemon-user {USER}")
        self.top.network.answer("server")
        self.top.up()
        self.stack = self.top.stack
        self.stack.directory.chmod(0o755)
        self.stack.kill("daemon")

    def give_datastore_to(self, user):
        shared = [pathlib.Path("/dev/shm", name) for name in self.stack.shared_memory()]
        own = (self.stack.directory / name for name in ("sysrepo", "state"))
        subprocess.run(["chown", "-R", user, *own, *shared], check=True)

    def start(self, user):
        self.give_datastore_to(user)
        with open(self.stack.directory / "daemon.log", "a", encoding="utf-8") as log:
            process = subprocess.Popen([*as_user(user), BIN / "dhcp-relay-app"], env=self.stack.environment(),
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.stack.processes.append(process)

    def test_of_the_option_is_taken(self):
        calls = self.stack.status()["calls"]
        self.start(USER)
        self.stack.wait_in_sync()
        self.assertGreater(self.stack.status()["calls"], calls)
        self.stack.edit(configuration(relay("r2", server=server_list("10.0.0.9"))))
        self.assertIn("r2", self.stack.instance_names())

    def test_that_is_another_is_refused_though_in_the_same_group(self):
        log = self.stack.directory / "manager.log"
        calls = self.stack.status()["calls"]
        with served_meanwhile(self, self.top, 5):
            self.start(OTHER)
            wait_until(lambda: "refused a daemon" in log.read_text(), "the daemon is refused")
        status = self.stack.status()
        self.assertFalse(status["connected"])
        self.assertEqual(status["calls"], calls)
