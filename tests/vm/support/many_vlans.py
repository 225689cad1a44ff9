"""A job of scripts/vm-test: $VX_VLANS VLAN devices on one trunk go down and up; tells what that costs the manager."""

import contextlib
import os
import pathlib

from configuration import configuration
from processes import wait_until
from report import Report
from topology import instance
from vlan_trunk import Cleanup, Trunk

COUNT = int(os.environ["VX_VLANS"])
LIMIT = 1500  # seconds
NUMBERS = range(1, COUNT + 1)


def address(number):
    return f"10.{number // 250}.{number % 250}.1/24"


def batch(top, *commands):
    """These ip commands for each VLAN: {0} is its number, {1} its address."""
    lines = [command.format(number, address(number)) for number in NUMBERS for command in commands]
    top.ip("-batch", "-", input="\n".join(lines) + "\n", timeout=LIMIT)


def wait_state(top, state):
    wait_until(lambda: {entry["state"] for entry in top.stack.show("interfaces")["interfaces"]} == {state},
               f"all interfaces are {state}", pause=0.5, limit=LIMIT)


def manager_seconds(top):
    """CPU time of the manager."""
    fields = pathlib.Path(f"/proc/{top.stack.pid('manager')}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def change(top, report, state):
    """The VLAN devices follow a trunk that goes down, and one that comes up again."""
    before = manager_seconds(top)
    top.ip("link", "set", "trunk", state)
    if state == "up":
        batch(top, "link set trunk.{0} up")
    wait_state(top, state)
    report.line("note", f"{COUNT} VLAN devices went {state}: {manager_seconds(top) - before:.2f} s of the manager, "
                "on an emulated processor")


def main():
    report = Report()
    with contextlib.ExitStack() as stack:
        top = Trunk(Cleanup(stack.callback))
        batch(top, "link add link trunk name trunk.{0} type vlan id {0}", "addr add {1} brd + dev trunk.{0}",
              "link set trunk.{0} up")
        top.stack.up(config=configuration(instance(interfaces=[f"l3-{number}" for number in NUMBERS]),
                                          l3=[(str(number), number, address(number)) for number in NUMBERS]))
        wait_state(top, "up")
        for state in ("down", "up"):
            change(top, report, state)
        report.line("end", 1)


if __name__ == "__main__":
    main()
