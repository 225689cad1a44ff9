"""Where the tests find what they test. VX_BIN_DIR names another build, VX_DEPS_BIN another set of datastore tools."""

import os
import pathlib

SOURCE = pathlib.Path(__file__).resolve().parents[2]
YANG = SOURCE / "yang"
BIN = pathlib.Path(os.environ.get("VX_BIN_DIR", SOURCE / "build" / "bin"))
TOOLS = pathlib.Path(os.environ.get("VX_DEPS_BIN", SOURCE / ".deps" / "prefix" / "bin"))
HELPERS = SOURCE / "tests" / "e2e" / "support"  # programs of the tests' own
