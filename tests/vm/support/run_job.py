"""run_job.py JOB [NAME=VALUE]...: boots a machine for a job of its own, with these settings, prints what it notes."""

import contextlib
import sys
import tempfile

from machine import Machine
from vlan_trunk import Cleanup

LIMIT = 3000  # seconds


def main():
    job, settings = sys.argv[1], dict(word.split("=", 1) for word in sys.argv[2:])
    with tempfile.TemporaryDirectory(prefix="vxv.") as directory, contextlib.ExitStack() as stack:
        machine = Machine(Cleanup(stack.callback), directory, job, settings=settings)
        machine.wait_end(LIMIT)
        print("\n".join(machine.values("note")))


if __name__ == "__main__":
    main()
