"""The manager and the programs that ask it, without a datastore and without a daemon."""

import os
import shutil
import subprocess

from leftovers import make_directory, remove_leftovers
from paths import BIN
from processes import run, wait_until

KIND = "vxp"


class Programs:
    """A directory for a manager, and its processes, gone in the end."""

    def setUp(self):
        remove_leftovers(KIND, lambda directory: None)
        self.directory = make_directory(KIND)
        self.addCleanup(shutil.rmtree, self.directory)
        self.environment = dict(os.environ, DHCP_MANAGER_DIR=str(self.directory / "run"),
                                DHCP_RELAY_SAVED_DIR=str(self.directory / "saver"),
                                VXMW_STATE_DIR=str(self.directory))

    def start(self, *arguments):
        process = subprocess.Popen([BIN / "dhcp-manager", *arguments], env=self.environment,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def start_and_wait(self, *arguments):
        process = self.start(*arguments)
        wait_until(lambda: self.relayctl("show").returncode == 0, "the manager answers")
        return process

    def manager(self, *arguments):
        return self.run_program("dhcp-manager", *arguments)

    def relayctl(self, *arguments):
        return self.run_program("dhcp-relayctl", *arguments)

    def run_program(self, name, *arguments):
        """Runs one of our programs to its end, whatever its exit status."""
        return run(BIN / name, *arguments, check=False, env=self.environment)
