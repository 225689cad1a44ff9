"""What processes and the machine spend, by /proc."""

import os
import pathlib
import time

TICKS_A_SECOND = os.sysconf("SC_CLK_TCK")


def of_process(pid):
    """Seconds that a process has run, with what the kernel did in its place meanwhile."""
    return int(pathlib.Path(f"/proc/{pid}/schedstat").read_text().split()[0]) / 1e9


def of_machine():
    """Seconds that all processors together were not idle: user, nice, system, irq and softirq.

    The kernel measures how long a processor is idle. How the rest divides it only samples.
    """
    line = pathlib.Path("/proc/stat").read_text().split("\n", maxsplit=1)[0]
    _user, _nice, _system, idle, iowait, _irq, _softirq, steal = (int(word) for word in line.split()[1:9])
    return os.cpu_count() * time.monotonic() - (idle + iowait + steal) / TICKS_A_SECOND


def of_machine_in(seconds):
    """The share of the coming time that the processors are not idle; 1 is one of them."""
    before = of_machine()
    time.sleep(seconds)
    return (of_machine() - before) / seconds


def wait_calm(share, window=0.5, tries=20):
    """Until the machine spends at most that share, such as when programs that were started have nothing left to do."""
    for _ in range(tries):
        if of_machine_in(window) <= share:
            return


def wake_ups(pid):
    """How often a process has been given a processor."""
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    return sum(int(line.split()[1]) for line in lines if "ctxt_switches:" in line)
