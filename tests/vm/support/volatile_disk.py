"""A disk with a write cache that a power cut empties: what the guest has not flushed is lost.

nbdkit holds back what is written until a flush. Killed together with the machine, it loses the rest.
"""

import pathlib
import subprocess

from machine import NOBODY_LEFT, disk_arguments
from processes import run, wait_until


class VolatileDisk:
    def __init__(self, test, directory, name, size):
        self.name = name
        self.image = pathlib.Path(directory, f"{name}.img")
        self.socket = pathlib.Path(directory, f"{name}.socket")
        self.process = None
        run("mke2fs", "-q", "-t", "ext4", self.image, size)
        test.addCleanup(self.cut)

    def attach(self):
        """Switches it on; arguments for the machine."""
        self.socket.unlink(missing_ok=True)
        self.process = subprocess.Popen([*NOBODY_LEFT, "nbdkit", "--foreground", "--unix", self.socket,
                                         "--filter", "cache", "file", self.image, "cache=writeback"])
        wait_until(self.socket.exists, "the disk is there")
        return disk_arguments(self.name, f"file=nbd+unix:///?socket={self.socket},cache=writeback")

    def cut(self):
        """Cuts its power; to be called before the machine's."""
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            self.process = None
