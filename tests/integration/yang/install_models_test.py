"""scripts/install-models on private datastores: what it installs, updates and refuses, and who gets access."""

import json
import re
import subprocess
import sys
import unittest

from model_copies import NEWER, OLDER, copy_models, with_leaf, without
from paths import SOURCE, TOOLS, YANG
from private_datastore import PrivateDatastore
from processes import run

SCRIPT = SOURCE / "scripts" / "install-models"
MODELS = sorted(file.stem for file in YANG.glob("*.yang"))
VRF_TABLE = "metacli-internal"
DATA = {
    "metacli-internal:internal": {"vrf-config": {"stringTOindex": [{"name": "red", "vrf-idx": 7}]}},
    "vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [
        {"name": "r1", "vrf": "red", "server": {"ipv4": [{"address": "10.0.0.1"}]}}]}}}
# Takes a read lock on the datastore's models and keeps it, as a subscriber does that is stuck.
HOLDER = """
import ctypes, sys
sysrepo = ctypes.CDLL("libsysrepo.so.7")
connection = ctypes.c_void_p()
assert sysrepo.sr_connect(0, ctypes.byref(connection)) == 0
sysrepo.sr_acquire_context.restype = ctypes.c_void_p
assert sysrepo.sr_acquire_context(connection)
print("held", flush=True)
sys.stdin.read()
"""


def current_revision(model):
    return max(re.findall(r"revision (\S+)", (YANG / f"{model}.yang").read_text()))


class InstallModels(unittest.TestCase):
    def setUp(self):
        self.datastore = self.enterContext(PrivateDatastore())
        self.directory = self.datastore.directory

    def install(self, *arguments, check=True):
        """Runs the script, whose temporary files go to a directory of their own."""
        temporary = self.directory / "temporary"
        temporary.mkdir(exist_ok=True)
        environment = dict(self.datastore.environment, TMPDIR=str(temporary))
        result = run(SCRIPT, *arguments, check=check, env=environment)
        self.assertEqual(list(temporary.iterdir()), [])
        return result

    def refused(self, *arguments):
        """What the script says when it fails; it must have changed neither models nor data."""
        before = self.everything()
        result = self.install(*arguments, check=False)
        self.assertEqual(result.returncode, 1, result.stdout)
        self.assertEqual(self.everything(), before)
        return result.stderr

    def everything(self):
        return self.table(), self.datastore.get(), self.datastore.get(datastore="startup")

    def table(self):
        """The datastore's list of models: by name, revision, flags, owner, modes of startup and running."""
        rows = [line.split("|") for line in self.datastore.run("sysrepoctl", "-l").stdout.splitlines() if "|" in line]
        return {row[0].strip(): [field.strip() for field in row[1:6]] for row in rows if row[0].strip() in MODELS}

    def revisions(self):
        return {model: row[:2] for model, row in self.table().items()}

    def assert_current(self):
        self.assertEqual(self.revisions(), {model: [current_revision(model), "I"] for model in MODELS})

    def copy(self, name, revision, **edits):
        edits = {model.replace("_", "-"): edit for model, edit in edits.items()}
        return copy_models(self.directory / name, revision, edits)

    def load(self, data, datastore):
        self.datastore.run("sysrepocfg", "--import", "-d", datastore, "-f", "json", stdin=json.dumps(data))


class Install(InstallModels):
    def test_installs_every_model_and_says_so(self):
        said = self.install(YANG).stdout
        self.assertCountEqual(said.splitlines(), [f"{model}: installed, {current_revision(model)}" for model in MODELS])
        self.assert_current()

    def test_leaves_what_is_there_alone(self):
        self.install(YANG)
        before = self.everything()
        said = self.install(YANG).stdout
        self.assertCountEqual(said.splitlines(), [f"{model}: unchanged, {current_revision(model)}" for model in MODELS])
        self.assertEqual(self.everything(), before)

    def test_installs_the_one_that_is_missing(self):
        self.install(YANG)
        self.datastore.run("sysrepoctl", "-u", "vx-dhcp-relay")
        said = self.install(YANG).stdout
        self.assertIn(f"vx-dhcp-relay: installed, {current_revision('vx-dhcp-relay')}\n", said)
        self.assertIn("vx-config: unchanged", said)
        self.assert_current()

    def test_loads_initial_data_into_a_new_datastore_only(self):
        data = self.directory / "data.json"
        data.write_text(json.dumps(DATA))
        self.install(YANG, data)
        for datastore in ("running", "startup"):
            self.assertEqual(self.datastore.get("/vx-config:*|/metacli-internal:*", datastore=datastore), DATA)
        data.write_text("{}")
        self.assertIn("not loaded, the datastore has the models already", self.install(YANG, data).stdout)
        self.assertEqual(self.datastore.get("/vx-config:*|/metacli-internal:*"), DATA)

    def test_tells_of_bad_arguments(self):
        for arguments, message in (((self.directory / "nowhere",), "has no models"),
                                   ((YANG, "/nowhere/at/all"), "cannot read"),
                                   (("--fast", YANG), "unknown option"),
                                   (("--owner", "nobody-at-all", YANG), "there is no user nobody-at-all"),
                                   (("--group", "nobody-at-all", YANG), "there is no group nobody-at-all"),
                                   (("--group",), "needs a name")):
            with self.subTest(arguments=arguments):
                self.assertIn(message, self.refused(*arguments))
        self.assertEqual(self.install(check=False).returncode, 2)
        self.assertIn("usage", self.install("--help").stdout)


class Update(InstallModels):
    def test_keeps_the_data_of_an_older_revision_with_fewer_leaves(self):
        older = self.copy("older", OLDER, vx_interface=without("leaf vlan"))
        self.install(older)
        self.load(DATA, "running")
        self.load(DATA, "startup")
        said = self.install(YANG).stdout
        self.assertCountEqual(said.splitlines(), [
            f"{model}: updated from {OLDER} to {current_revision(model)}" for model in MODELS])
        self.assert_current()
        self.assertEqual(self.everything()[1:], (DATA, DATA))
        self.datastore.edit({"vx-config:config": {"vx-interface:interface": {"l3": [
            {"name": "5", "lower-layer-if": {"vlan": 5}}]}}})

    def test_updates_one_model_among_others_that_are_up_to_date(self):
        self.install(YANG)
        newer = self.copy("newer", NEWER)
        for file in newer.iterdir():
            if file.stem not in ("vx-schema", "vx-dhcp-relay"):
                file.write_text((YANG / file.name).read_text())
        said = self.install(newer).stdout
        self.assertEqual(said.count("unchanged"), len(MODELS) - 2)
        self.assertEqual(self.revisions()["vx-dhcp-relay"], [NEWER, "I"])

    def test_installs_models_that_were_only_imported(self):
        older = self.copy("older", OLDER)
        self.datastore.run("sysrepoctl", "-i", older / "vx-dhcp-relay.yang", "-s", older)
        self.assertEqual(self.revisions()["vx-schema"], [OLDER, "i"])
        said = self.install(YANG).stdout
        self.assertIn("vx-schema: installed", said)
        self.assertIn("vx-config: updated", said)
        self.assert_current()

    def test_refuses_when_a_newer_model_is_installed(self):
        older = self.copy("older", OLDER)
        self.install(older)
        newer = self.copy("newer", NEWER)
        self.datastore.run("sysrepoctl", "-U", newer / "vx-schema.yang", "-s", newer)
        said = self.refused(YANG)
        self.assertIn("nothing was changed", said)
        self.assertIn(f"vx-schema {NEWER} (here {current_revision('vx-schema')})", said)

    def test_refuses_when_a_newer_model_is_imported(self):
        newer = self.copy("newer", NEWER)
        self.datastore.run("sysrepoctl", "-i", newer / "vx-interface.yang", "-s", newer)
        self.assertIn(f"vx-schema {NEWER}", self.refused(YANG))

    def test_refuses_when_the_new_models_refuse_the_data(self):
        older = self.copy("older", OLDER, metacli_internal=lambda text: text.replace('unique "vrf-idx";', ""))
        self.install(older)
        twice = {"metacli-internal:internal": {"vrf-config": {"stringTOindex": [
            {"name": "blue", "vrf-idx": 7}, {"name": "red", "vrf-idx": 7}]}}}
        for datastore in ("running", "startup"):
            with self.subTest(datastore=datastore):
                self.load({}, "running")
                self.load({}, "startup")
                self.load(twice, datastore)
                said = self.refused(YANG)
                self.assertIn("nothing was changed", said)
                self.assertIn('Unique data leaf(s) "vrf-idx" not satisfied', said)

    def test_refuses_to_lose_data_that_the_new_models_do_not_know(self):
        older = self.copy("older", OLDER, metacli_internal=with_leaf("colour", behind="list stringTOindex"))
        self.install(older)
        coloured = {"metacli-internal:internal": {"vrf-config": {"stringTOindex": [
            {"name": "red", "vrf-idx": 7, "colour": "red"}]}}}
        for datastore in ("running", "startup"):
            with self.subTest(datastore=datastore):
                self.load({}, "running")
                self.load({}, "startup")
                self.load(coloured, datastore)
                said = self.refused(YANG)
                self.assertIn(f"the new models refuse the {datastore} data", said)
                self.assertIn('Node "colour" not found', said)

    def test_names_the_process_that_keeps_the_models_from_being_changed(self):
        self.install(self.copy("older", OLDER))
        environment = dict(self.datastore.environment, LD_LIBRARY_PATH=str(TOOLS.parent / "lib"))
        holder = subprocess.Popen([sys.executable, "-c", HOLDER], env=environment, text=True,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(holder.communicate)
        self.assertEqual(holder.stdout.readline(), "held\n")
        said = self.refused(YANG)
        self.assertIn(f"process {holder.pid}", said)
        self.assertIn("nothing was changed", said)

    def test_fails_when_the_revision_afterwards_is_not_the_wanted_one(self):
        self.install(self.copy("older", OLDER))
        tools = self.directory / "tools"
        tools.mkdir()
        real = run("sh", "-c", "command -v sysrepoctl", env=self.datastore.environment).stdout.strip()
        (tools / "sysrepoctl").write_text(f'#!/bin/sh\n[ "$1" = -U ] || exec {real} "$@"\n')
        (tools / "sysrepoctl").chmod(0o755)
        self.datastore.environment["PATH"] = f"{tools}:{self.datastore.environment['PATH']}"
        self.assertIn(f"but has it in revision {OLDER}", self.refused(YANG))


class Access(InstallModels):
    OWNER, GROUP = "daemon", "dhcp-manager"

    def access(self):
        return {model: row[2:] for model, row in self.table().items()}

    def test_gives_the_data_to_the_owner_and_the_group_but_not_to_others(self):
        self.install("--owner", self.OWNER, "--group", self.GROUP, YANG)
        shared = [f"{self.OWNER}:{self.GROUP}", "660", "660"]
        self.assertEqual(self.access(), {model: shared if model != VRF_TABLE else [shared[0], "640", "640"]
                                         for model in MODELS})
        files = [file for file in (self.directory / "repository" / "data").iterdir() if file.name.startswith(VRF_TABLE)]
        self.assertGreater(len(files), 3)
        for file in files:
            self.assertEqual(file.stat().st_mode & 0o777, 0o640, file)

    def test_takes_owner_and_group_from_the_environment_too(self):
        self.datastore.environment.update(VX_MODELS_OWNER=self.OWNER, VX_MODELS_GROUP=self.GROUP)
        self.install(YANG)
        self.assertEqual(self.access()["vx-config"], [f"{self.OWNER}:{self.GROUP}", "660", "660"])

    def test_leaves_them_as_they_are_without_options(self):
        self.install("--owner", self.OWNER, "--group", self.GROUP, self.copy("older", OLDER))
        before = self.access()
        self.install(YANG)
        self.assertEqual(self.access(), before)

    def test_takes_the_vrf_table_from_others_in_any_case(self):
        self.install(YANG)
        for model in (VRF_TABLE, "vx-config"):
            self.datastore.run("sysrepoctl", "-c", model, "-p", "664")
        self.install(YANG)
        self.assertEqual(self.access()[VRF_TABLE][1:], ["660", "660"])
        self.assertEqual(self.access()["vx-config"][1:], ["664", "664"])
