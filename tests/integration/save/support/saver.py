"""dhcp-relay-saved on a datastore of a test's own, without daemon and manager."""

import json
import os
import signal
import subprocess

from paths import BIN
from private_datastore import PrivateDatastore
from processes import LIMIT, run, wait_until

PENDING = "dhcp-relay-saved.pending"


def configuration(name, index):
    """Data of two modules, which belong together."""
    return {"metacli-internal:internal": {"vrf-config": {"stringTOindex": [{"name": name, "vrf-idx": index}]}},
            "vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [{"name": name, "vrf": name}]}}}


class SavedDatastore:
    """A mixin: `datastore` with the models and, once start() was called, with a saver."""

    def setUp(self):
        self.datastore = self.enterContext(PrivateDatastore())
        self.repository = self.datastore.directory / "repository"
        self.prepare()
        self.datastore.install()
        self.environment = dict(self.datastore.environment, VXMW_STATE_DIR=str(self.datastore.directory),
                                DHCP_MANAGER_DIR=str(self.datastore.directory / "run"),
                                DHCP_RELAY_SAVED_DIR=str(self.datastore.directory / "saver"))
        self.log = open(self.datastore.directory / "saver.log", "w", encoding="utf-8")
        self.addCleanup(self.log.close)
        self.started = []

    def prepare(self):
        """What has to be there before the datastore is made."""

    def start(self):
        process = subprocess.Popen([BIN / "dhcp-relay-saved"], env=self.environment, stdout=self.log, stderr=self.log)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.started.append(process)
        return process

    def start_and_wait(self):
        process = self.start()
        self.wait_settled()
        return process

    def stop(self, process):
        """Its exit status after SIGTERM."""
        process.send_signal(signal.SIGTERM)
        return process.wait(timeout=LIMIT)

    def saver(self, *arguments, prefix=()):
        """Runs it to its end, whatever its exit status."""
        return run(*prefix, BIN / "dhcp-relay-saved", *arguments, check=False, env=self.environment)

    def commits(self):
        """What dhcp-relayctl tells about commits."""
        shown = run(BIN / "dhcp-relayctl", "status", "--json", check=False, env=self.environment).stdout
        return json.loads(shown)["commits"]

    def wait_settled(self):
        """Waits until running and startup datastore are equal and nothing is pending."""
        wait_until(lambda: self.commits()["state"] == "saved" and self.in_step(), "everything is saved")

    def in_step(self):
        return not self.pending() and self.startup() == self.datastore.get()

    def startup(self):
        return self.datastore.get(datastore="startup")

    def pending(self):
        return (self.repository / PENDING).exists()

    def shared_memory(self):
        prefix = self.environment["SYSREPO_SHM_PREFIX"]
        return [name for name in os.listdir("/dev/shm") if name.startswith((f"{prefix}_", f"{prefix}sub_"))]

    def remove_shared_memory(self):
        for name in self.shared_memory():
            os.unlink(f"/dev/shm/{name}")

    def faults(self):
        file = self.datastore.directory / "faults.jsonl"
        lines = file.read_text().splitlines() if file.exists() else []
        return [json.loads(line)["text"] for line in lines]

    def files(self):
        """What is on the disk, with the times of its latest change."""
        folders = [self.repository, self.repository / "data"]
        return {path: path.stat().st_mtime_ns for folder in folders for path in [folder, *folder.iterdir()]
                if path.name != "conn"}
