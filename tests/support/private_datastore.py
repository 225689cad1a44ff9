"""A datastore of a test's own.

    with PrivateDatastore() as datastore:
        datastore.install()
        datastore.edit({"vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [{"name": "r1"}]}}})
        datastore.get("/vx-config:config")

It lives in a directory and under a shared-memory prefix that nothing else uses, so that any number of them stand
beside each other and beside the system's. Leaving the block removes both, on failure too; what a killed process
left behind goes when the next datastore is made. The datastore's tools are taken from VX_DEPS_BIN, by default the
set-up's prefix, then from PATH.

The datastore library reads its environment once in a process: programs under test are started with `environment`,
which holds all of this process's own.
"""

import json
import os
import pathlib
import shutil

from leftovers import make_directory, remove_leftovers
from paths import SOURCE, TOOLS, YANG
from processes import run

KIND = "vxt"


class PrivateDatastore:
    """Inside its `with` block: `directory`, also for a test's own files, and `environment`, a dict.

    A tool that fails raises AssertionError with what it wrote to standard error. Operations that take `check` do
    not when it is False; they return the subprocess.CompletedProcess.
    """

    def __enter__(self):
        remove_leftovers(KIND, _remove_shared_memory)
        self.directory = make_directory(KIND)
        self.environment = dict(os.environ, SYSREPO_REPOSITORY_PATH=str(self.directory / "repository"),
                                SYSREPO_SHM_PREFIX=_prefix(self.directory),
                                PATH=f"{TOOLS}:{os.environ['PATH']}")
        return self

    def __exit__(self, *_):
        _remove_shared_memory(self.directory)
        shutil.rmtree(self.directory)

    def run(self, *command, stdin=None, check=True):
        """Runs a program on this datastore."""
        return run(*command, check=check, env=self.environment, input=stdin)

    def install(self, *modules):
        """Installs YANG files, or the relay's models when none are given. One call is as fast for all as for one."""
        if not modules:
            self.run(SOURCE / "scripts" / "install-models", YANG)
            return
        directories = ":".join(sorted({str(YANG), *(str(pathlib.Path(module).parent) for module in modules)}))
        installs = [argument for module in modules for argument in ("-i", module)]
        self.run("sysrepoctl", *installs, "-s", directories)

    def edit(self, document, check=True):
        """Merges a document into the running datastore: JSON as a dict, XML as a str."""
        return self._configure("--edit", document, check)

    def replace(self, document, check=True):
        """Makes the running datastore hold this document and nothing else."""
        return self._configure("--import", document, check)

    def get(self, xpath="/*", *options, datastore="running"):
        """What is at an XPath, as a dict; `options` are sysrepocfg's, such as -e report-all for the defaults."""
        return json.loads(self.run("sysrepocfg", "--export", "-d", datastore, "-f", "json",
                                   "-x", xpath, *options).stdout)

    def _configure(self, operation, document, check):
        is_xml = isinstance(document, str)
        return self.run("sysrepocfg", operation, "-d", "running", "-f", "xml" if is_xml else "json",
                        stdin=document if is_xml else json.dumps(document), check=check)


def _prefix(directory):
    # The process id alone would not do: a prefix serves one repository, and a process may have several.
    _, pid, unique = directory.name.split(".")
    return f"{KIND}{pid}_{unique}"


def _remove_shared_memory(directory):
    prefix = _prefix(directory)
    for name in os.listdir("/dev/shm"):
        # With what follows the prefix, since one prefix may be the beginning of another.
        if name.startswith((prefix + "_", prefix + "sub_")):
            os.unlink(f"/dev/shm/{name}")
