"""A stack whose processes are stopped and killed, whose shared memory goes, and whose models change under it."""

import os
import pathlib
import random
import re
import shutil
import signal
import threading

from paths import YANG
from stack import Stack

PROCESSES = ("daemon", "manager", "state", "saver")
UPGRADED = "vx-interface.yang"
REVISION = "  revision "
LIST_END = "        container ipv4 {"


class DisturbedStack(Stack):
    def __init__(self, test):
        super().__init__(test)
        self.stopped = None  # the timer that lets a stopped daemon go on
        self.upgrades = 0

    def stop_daemon_for(self, seconds):
        """Returns at once; a daemon that is stopped already stays so for as long as it was to."""
        if self.stopped is not None and self.stopped.is_alive():
            return False
        pid = self.pid("daemon")
        os.kill(pid, signal.SIGSTOP)
        self.stopped = threading.Timer(seconds, self._go_on, [pid])
        self.stopped.start()
        return True

    def wait_until_daemon_goes_on(self):
        if self.stopped is not None:
            self.stopped.join()

    def restart(self, name):
        self.kill(name)
        self.start(name)

    def kill_everything(self):
        for name in PROCESSES:
            if (self.directory / f"{name}.pid").exists():
                self.kill(name)

    def wipe_shared_memory(self, choice=random):
        """In any order, which is returned."""
        names = sorted(self.shared_memory())
        choice.shuffle(names)
        for name in names:
            pathlib.Path("/dev/shm", name).unlink(missing_ok=True)
        return names

    def is_subscribed(self, name):
        """Whether a process is subscribed to the datastore that is there, not to one whose pipes were removed."""
        for file in pathlib.Path(f"/proc/{self.pid(name)}/fd").glob("*"):
            try:
                if re.search(r"/sr_evpipe\d+$", os.readlink(file)):
                    return True
            except FileNotFoundError:
                pass
        return False

    def upgrade_models(self):
        """Installs a newer revision of a model, with one leaf more."""
        self.upgrades += 1
        models = self.directory / "yang"
        if not models.exists():
            shutil.copytree(YANG, models)
        model = models / UPGRADED
        text = model.read_text()
        text = text.replace(REVISION, f'{REVISION}2030-01-{self.upgrades:02} {{\n    description "Newer.";\n  }}\n\n'
                            + REVISION, 1)
        text = text.replace(LIST_END, f"        leaf note-{self.upgrades} {{\n          type string;\n        }}\n"
                            + LIST_END, 1)
        model.write_text(text)
        self.tool("sysrepoctl", "-s", models, "-U", model)

    @staticmethod
    def _go_on(pid):
        try:
            os.kill(pid, signal.SIGCONT)
        except ProcessLookupError:
            pass
