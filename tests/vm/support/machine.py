"""A virtual machine without hardware support, which any host can run: the guest of scripts/setup with a job to do.

The guest reports in lines on its second serial port; its kernel and its programs write to the first, the console. What
it does has a limit: a machine that reports too late, or ends by itself, fails with the end of its console.
"""

import pathlib
import subprocess

from processes import wait_until
from tree_disk import DISK, GUEST

LIMIT = 240  # seconds for whatever the guest does next; it is some ten times slower than the host
CONSOLE_TAIL = 60  # lines
NOBODY_LEFT = ("setpriv", "--pdeathsig", "KILL", "--")  # a helper ends with the test, also when that is killed
# A host that is busy lets emulated time jump, which the kernel must not take for a broken timer.
KERNEL_WORDS = "console=ttyS0 quiet panic=-1 no_timer_check nowatchdog mitigations=off root=/dev/nvme0n1 ro init=/init"
COMMAND = ("qemu-system-x86_64", "-accel", "tcg", "-cpu", "qemu64", "-smp", "1", "-m", "1024",
           "-nodefaults", "-no-user-config", "-display", "none", "-no-reboot", "-monitor", "none")


def disk_arguments(name, drive, device="virtio-blk-pci"):
    """A disk that the guest finds by its serial number."""
    return ("-drive", f"if=none,id={name},format=raw,{drive}", "-device", f"{device},drive={name},serial={name}")


class Machine:
    """Runs from now on, until kill() or the end of the test."""

    def __init__(self, test, directory, job, *, disks=(), settings=None):
        """`job` is what tests/vm/support/guest-main is to do, `settings` its environment; `disks` are arguments from
        disk_arguments."""
        self.console = pathlib.Path(directory, "console.log")
        self.reports = pathlib.Path(directory, "reports.log")
        words = " ".join(f"{name}={value}" for name, value in {"VX_JOB": job, **(settings or {})}.items())
        self.process = subprocess.Popen(
            [*NOBODY_LEFT, *COMMAND, "-kernel", GUEST / "vmlinuz", "-append",
             f"{KERNEL_WORDS} {words}",
             "-serial", f"file:{self.console}", "-serial", f"file:{self.reports}",
             *disk_arguments("root", f"file={GUEST}/root.img,readonly=on", "nvme"),
             *disk_arguments("tree", f"file={DISK},readonly=on"), *disks],
            stdin=subprocess.DEVNULL)
        test.addCleanup(self.kill)

    def lines(self):
        """The complete lines of the report so far."""
        if not self.reports.exists():
            return []
        return self.reports.read_text(errors="replace").replace("\r", "").rpartition("\n")[0].splitlines()

    def values(self, word):
        """What the lines say that begin with this word."""
        return [line[len(word) + 1:] for line in self.lines() if line.startswith(f"{word} ")]

    def wait_for(self, condition, what, limit=LIMIT):
        """Waits until the condition is true; an error that the guest reports, or its end, is a failure."""
        def reached():
            if condition():
                return True
            if self.values("error") or self.process.poll() is not None:
                raise AssertionError(f"the guest has failed {self.values('error')} before: {what}")
            return False
        try:
            wait_until(reached, what, pause=0.05, limit=limit)
        except AssertionError as error:
            self.kill()
            raise AssertionError(f"{error}\n{self.tail()}") from error

    def wait_end(self, limit=LIMIT):
        self.wait_for(lambda: self.values("end"), "the guest has done its job", limit)

    def tail(self):
        """The end of the console."""
        text = self.console.read_text(errors="replace") if self.console.exists() else ""
        return "\n".join(["the end of its console:", *text.splitlines()[-CONSOLE_TAIL:]])

    def kill(self):
        """What a loss of power does."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
