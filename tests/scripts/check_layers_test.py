"""The check of layers, on small trees made for each case: what it finds, where, and what it lets pass."""

import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "scripts" / "check-layers"

# What is right: every test of a finding adds one fault to it.
CLEAN = {
    "platform/nettypes/include/nettypes/ipv4_addr.h": "#include <string>\n",
    "platform/nettypes/src/ipv4_addr.cc": "#include <nettypes/ipv4_addr.h>\n",
    "platform/vxmidware/include/vxmw/vxmw.h": "",
    "platform/vxmidware/include/vxmw/event.h": "#include <systemd/sd-event.h>\n#include <vxmw/vxmw.h>\n",
    "platform/vxmidware/src/loop.h": "",
    "platform/vxmidware/src/loop.cc": '#include "platform/vxmidware/src/loop.h"\n',
    "base/descriptor.h": "",
    "base/service/log.cc": '#include <vxmw/vxmw.h>\n#include "base/descriptor.h"\n',
    "protocol/wire/wire.proto": 'syntax = "proto3";\nimport "google/protobuf/empty.proto";\n',
    "protocol/wire/wire.h": '#include "protocol/wire/wire.pb.h"\n',
    "protocol/control/control.proto": 'import "protocol/control/counters.proto";\noption optimize_for = SPEED;\n',
    "protocol/control/counters.proto": "",
    "protocol/control/outcome_names.h": "",
    "dhcp_manager/packet/rules.h": '#include <netinet/in.h>\n#include "protocol/control/outcome_names.h"\n',
    "dhcp_manager/table/table.h": '#include <sys/epoll.h>\n#include "dhcp_manager/packet/rules.h"\n',
    "dhcp_manager/main.cc": '#include "dhcp_manager/table/table.h"\n',
    "src/lib/logger.h": "#include <zlog.h>\n",
    "src/dhcp_relay_app/main.cc": '#include <unistd.h>\n#include <vx/schema_hash.h>\n#include "src/lib/logger.h"\n',
    "ctl/main.cc": '#include <nlohmann/json.hpp>\n#include "protocol/control/control.pb.h"\n',
    "bench/relay/load.cc": '#include "tests/support/loop.h"\n',
    "tests/support/loop.h": "#include <vxmw/event.h>\n",
    "tests/unit/platform/vxmidware/loop_test.cc": '#include "platform/vxmidware/src/loop.h"\n',
    "tests/integration/platform/vxmidware/loop_test.cc": '#include "platform/vxmidware/src/loop.h"\n',
    "tests/e2e/everything.cc": '#include "ctl/main.cc"\n#include "dhcp_manager/main.cc"\n',
}


def function(name, lines):
    return f"void {name}() {{\n" + "  Call();\n" * (lines - 2) + "}\n"


class MadeTree:
    """A tree made for one test, and the script run on it."""

    def setUp(self):
        self.root = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))

    def write(self, files):
        for path, text in files.items():
            file = self.root / path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_text(text)

    def run_script(self, *options, script=SCRIPT):
        return subprocess.run([script, *options, self.root], capture_output=True, text=True)

    def passes(self, files, *options):
        self.write(files)
        done = self.run_script(*options)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def finds(self, *expected, files=None, options=()):
        """Exactly these lines, given as regular expressions, in what is right but for `files`."""
        self.write({**CLEAN, **(files or {})})
        done = self.run_script(*options)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        lines = done.stderr.splitlines()
        self.assertEqual(lines[-1], f"check-layers: {len(expected)} findings")
        self.assertEqual(len(lines), len(expected) + 1, done.stderr)
        for line, pattern in zip(lines, expected):
            self.assertRegex(line, "^" + pattern)


class Trees(MadeTree, unittest.TestCase):
    def test_a_clean_tree_passes_and_is_counted(self):
        self.assertEqual(self.passes(CLEAN), "check-layers: 24 files, 15 rooms, 13 arrows, no circle\n")

    def test_a_folder_without_sources_fails(self):
        self.write({"README.md": "#include\n"})
        done = self.run_script()
        self.assertEqual(done.returncode, 1)
        self.assertIn("holds no sources", done.stderr)

    def test_build_and_hidden_directories_are_not_read(self):
        self.passes({**CLEAN, "build/x.h": '#include "no.h"\n', "build-asan/base/x.h": '#include "no.h"\n',
                     ".deps/x.h": '#include "no.h"\n'})

    def test_a_checkout_is_read_as_git_lists_it(self):
        self.write({".gitignore": "scratch/\n", "scratch/x.h": '#include "no.h"\n'})
        subprocess.run(["git", "init", "--quiet", self.root], check=True)
        self.finds(r"base/new\.h:1: ", files={"base/new.h": '#include "no.h"\n'})

    def test_an_unknown_folder_is_found_once(self):
        self.finds(r"dhcp_manager/table/rows/a\.h:1: the folder dhcp_manager/table/rows is no room; ",
                   files={"dhcp_manager/table/rows/a.h": "", "dhcp_manager/table/rows/b.h": ""})

    def test_folders_of_a_library_beside_its_two_are_unknown(self):
        self.finds(r"a\.h:1: the folder \. is no room", r"platform/nettypes/a\.h:1: the folder platform/nettypes is",
                   r"platform/other/src/a\.h:1: the folder", r"yang/a\.h:1: the folder yang is",
                   files={"a.h": "", "platform/nettypes/a.h": "", "platform/other/src/a.h": "", "yang/a.h": ""})


class Arrows(MadeTree, unittest.TestCase):
    def test_an_arrow_up(self):
        self.finds(r"protocol/wire/a\.h:2: an arrow up: protocol/wire includes dhcp_manager/table/table\.h of ",
                   files={"protocol/wire/a.h": '\n#include "dhcp_manager/table/table.h"\n'})

    def test_an_arrow_up_by_angle_brackets(self):
        self.finds(r"platform/nettypes/src/a\.cc:1: an arrow up: .* includes platform/vxmidware/include/vxmw/vxmw\.h",
                   files={"platform/nettypes/src/a.cc": "#include <vxmw/vxmw.h>\n"})

    def test_an_arrow_up_between_protocol_files(self):
        self.finds(r"protocol/wire/a\.proto:3: an arrow up: .*protocol/control/control\.proto",
                   files={"protocol/wire/a.proto": '\n\nimport public "protocol/control/control.proto";\n'})

    def test_an_arrow_down_that_the_table_lacks(self):
        self.finds(r"src/lib/a\.h:1: src/lib may not include base/descriptor\.h of base; keep to the table",
                   files={"src/lib/a.h": '#include "base/descriptor.h"\n'})

    def test_a_room_may_use_only_some_files_of_another(self):
        self.finds(r"dhcp_manager/packet/a\.h:1: dhcp_manager/packet may not include protocol/control/client\.h",
                   files={"protocol/control/client.h": "",
                          "dhcp_manager/packet/a.h": '#include "protocol/control/client.h"\n'})

    def test_a_generated_header_of_the_model(self):
        self.finds(r"base/a\.h:1: an arrow up: base includes vx/schema_hash\.h of yang",
                   files={"base/a.h": "#include <vx/schema_hash.h>\n"})

    def test_a_program_that_includes_another_ones_files(self):
        programs = [("bench/a.h", "bench"), ("ctl/a.h", "ctl"), ("dhcp_manager/a.h", "dhcp_manager"),
                    ("src/lib/a.h", "src"), ("state/a.h", "state"), ("yang/gen/a.h", "yang/gen")]
        for others in (lambda at: programs[:at], lambda at: programs[at + 1:]):
            files, expected = {}, []
            for at, (file, program) in enumerate(programs):
                files[file] = "".join(f'#include "{other}"\n' for other, _ in others(at))
                expected += [rf"{file}:{line}: the program {program} includes {other} of the program {theirs}; "
                             for line, (other, theirs) in enumerate(others(at), 1)]
            self.finds(*expected, files=files)

    def test_a_private_header_of_a_library(self):
        wrong = '#include "platform/vxmidware/src/loop.h"\n'
        self.finds(*(rf"{file}:1: platform/vxmidware/src/loop\.h is private to platform/vxmidware; "
                     for file in ("base/service/a.h", "bench/a.h", "dhcp_manager/table/a.h", "tests/fakes/a.h",
                                  "tests/unit/platform/nettypes/a.h")),
                   files={"base/service/a.h": wrong, "bench/a.h": wrong, "dhcp_manager/table/a.h": wrong,
                          "tests/fakes/a.h": wrong, "tests/unit/platform/nettypes/a.h": wrong})

    def test_comments_and_literals_include_nothing(self):
        self.passes({**CLEAN, "base/a.h": '// #include "a"\n/*\n#include "b"\n*/\nauto c = R"x(\n#include "c"\n)x";\n'})


class Circles(MadeTree, unittest.TestCase):
    def test_a_circle_between_rooms_is_printed_as_a_whole(self):
        self.finds(r"base/a\.h:1: a circle between rooms: base -> dhcp_manager/table -> dhcp_manager/packet -> base; ",
                   r"base/a\.h:1: an arrow up: ",
                   files={"base/a.h": '#include "dhcp_manager/table/table.h"\n',
                          "dhcp_manager/packet/b.h": '#include "base/descriptor.h"\n'})

    def test_two_circles_are_two_findings(self):
        self.finds(r"base/a\.h:1: a circle between rooms: base -> dhcp_manager/packet -> base; ",
                   r"base/a\.h:1: an arrow up: ",
                   r"protocol/control/a\.h:1: a circle .*: dhcp_manager/packet -> protocol/control -> dhcp_manager/pac",
                   r"protocol/control/a\.h:1: an arrow up: ",
                   files={"base/a.h": '#include "dhcp_manager/packet/rules.h"\n',
                          "dhcp_manager/packet/b.h": '#include "base/descriptor.h"\n',
                          "protocol/control/a.h": '#include "dhcp_manager/packet/rules.h"\n'})

    def changed_table(self, line, by):
        """The script with another table, run on what is right."""
        home = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        shutil.copytree(SCRIPT.parent / "layers", home / "layers", ignore=shutil.ignore_patterns("__pycache__"))
        text = SCRIPT.read_text()
        self.assertIn(line, text)
        shutil.copy(SCRIPT, home)
        (home / SCRIPT.name).write_text(text.replace(line, by))
        self.write(CLEAN)
        return self.run_script(script=home / SCRIPT.name)

    def test_a_circle_in_the_table_itself(self):
        done = self.changed_table('"base": "",', '"base": "base/service",')
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, "^scripts/check-layers:1: the table .* circle: base -> base/service -> base; ")

    def test_a_room_in_the_table_that_is_none(self):
        done = self.changed_table('"base": "",', '"base": "basement",')
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr, "^scripts/check-layers:1: the table .* names basement, which is no room;")


class Spelling(MadeTree, unittest.TestCase):
    def finds_in_table(self, include, pattern, **files):
        self.finds(r"dhcp_manager/table/a\.h:1: " + pattern, files={"dhcp_manager/table/a.h": include + "\n", **files})

    def test_a_name_relative_to_the_file(self):
        self.finds_in_table('#include "table.h"', '"table.h" is not written from the root; write '
                                                  '"dhcp_manager/table/table.h"$')

    def test_a_name_below_an_include_directory(self):
        self.finds_in_table('#include "packet/rules.h"', '.*; write "dhcp_manager/packet/rules.h"$')

    def test_a_way_up_and_down(self):
        self.finds_in_table('#include "dhcp_manager/table/../packet/rules.h"', '.* is not written from the root; write '
                                                                               '"dhcp_manager/packet/rules.h"$')

    def test_a_name_that_nothing_has(self):
        self.finds_in_table('#include "no/such.h"', '"no/such.h" does not exist below the root; ')

    def test_a_generated_header_whose_source_is_missing(self):
        self.finds_in_table('#include "protocol/wire/other.pb.h"', '"protocol/wire/other.pb.h" does not exist ')

    def test_a_generated_header_without_its_path(self):
        self.finds_in_table('#include "wire.pb.h"', '.*; write "protocol/wire/wire.pb.h"$')

    def test_the_models_header_in_quotes(self):
        self.finds_in_table('#include "vx/schema_hash.h"', '.* is a generated header; write <vx/schema_hash.h>$')

    def test_angle_brackets_around_a_file_of_the_tree(self):
        self.finds_in_table("#include <dhcp_manager/packet/rules.h>", ".* is a file of this tree .*; write "
                                                                      '"dhcp_manager/packet/rules.h"$')

    def test_angle_brackets_around_a_file_in_an_include_directory(self):
        self.finds_in_table("#include <rules.h>", r"<rules\.h> is a file of this tree \(dhcp_manager/packet/rules\.h\)")

    def test_a_standard_header_with_the_name_of_a_file(self):
        self.passes({**CLEAN, "base/errno.h": "", "ctl/a.h": "#include <errno.h>\n"})

    def test_a_public_header_in_quotes(self):
        self.finds_in_table('#include "nettypes/ipv4_addr.h"',
                            ".* is a public header of the platform; write <nettypes/ipv4_addr.h>$")

    def test_a_public_header_in_quotes_with_its_path(self):
        self.finds_in_table('#include "platform/nettypes/include/nettypes/ipv4_addr.h"',
                            ".* is a public header of the platform; write <nettypes/ipv4_addr.h>$")

    def test_a_public_header_that_needs_one_that_is_not_installed(self):
        self.finds(r"platform/vxmidware/include/vxmw/a\.h:1: a public header of the platform includes ",
                   files={"platform/vxmidware/include/vxmw/a.h": '#include "platform/vxmidware/src/loop.h"\n'})

    def test_a_name_in_a_macro(self):
        self.finds_in_table("#include HEADER", "the name of this include stands in a macro; ")

    def test_a_test_is_held_to_it_too(self):
        self.finds(r'tests/e2e/a\.cc:1: "loop\.h" is not written', r'tests/e2e/a\.cc:2: "vxmw/vxmw\.h" is a public',
                   files={"tests/e2e/a.cc": '#include "loop.h"\n#include "vxmw/vxmw.h"\n',
                          "platform/vxmidware/src/loop.h": "", "tests/e2e/loop.h": ""})


class Foreign(MadeTree, unittest.TestCase):
    def test_the_daemon_keeps_to_the_standard_and_its_platform(self):
        names = ("sysrepo.h", "libyang/libyang.h", "systemd/sd-event.h", "google/protobuf/message.h", "sys/epoll.h")
        lines = "".join(f"#include <{name}>\n" for name in names)
        self.finds(*(rf"{folder}/a\.cc:{line}: {folder} may not include {name}; "
                     for folder in ("src/dhcp_relay_app", "src/lib") for line, name in enumerate(names, 1)),
                   files={"src/lib/a.cc": lines, "src/dhcp_relay_app/a.cc": lines})

    def test_packet_rules_are_pure(self):
        names = ("sysrepo.h", "sys/socket.h", "sys/epoll.h", "google/protobuf/message.h", "systemd/sd-event.h")
        self.finds(*(rf"dhcp_manager/packet/a\.h:{line}: dhcp_manager/packet may not include {name}; "
                     for line, name in enumerate(names, 1)),
                   r"dhcp_manager/packet/a\.h:6: dhcp_manager/packet may not include platform/vxmidware/.*/vxmw\.h",
                   r"dhcp_manager/packet/a\.h:7: dhcp_manager/packet may not include protocol/wire/wire\.pb\.h; ",
                   files={"dhcp_manager/packet/a.h": "".join(f"#include <{name}>\n" for name in (*names, "vxmw/vxmw.h"))
                          + '#include "protocol/wire/wire.pb.h"\n'})


class Sizes(MadeTree, unittest.TestCase):
    def test_a_long_file(self):
        text = "// line\n" * 301
        self.finds(r"base/a\.h:301: the file has 301 lines, more than 300; ",
                   files={"base/a.h": text, "base/b.h": "// line\n" * 300, "tests/e2e/a.h": text,
                          "src/dhcp_relay_app/dhcp_relay_cfg_handler.cc": text})

    def test_another_limit_of_files(self):
        self.finds(r"base/a\.h:10: the file has 10 lines, more than 9; ", files={"base/a.h": "\n" * 10},
                   options=("--max-lines", "9"))

    def test_too_many_long_functions(self):
        text = "".join(function(f"F{i}", 15) for i in range(8))
        self.finds(r"base/a\.cc:137: the 90th percentile .* is 16 lines, more than 15; .* as G9 with its 17$",
                   files={"base/a.cc": text + function("G8", 16) + function("G9", 17)})

    def test_one_long_function_in_ten(self):
        self.passes({**CLEAN, "base/a.cc": "".join(function(f"F{i}", 15) for i in range(9)) + function("Long", 99)})

    def measured(self, text):
        """The lines and the name of each function of a file, the longest first."""
        output = self.passes({"base/a.h": text}, "--report")
        return re.findall(r"^ +(\d+)  base/a\.h:(\d+) +(\S+)$", output, re.MULTILINE)

    def test_functions_are_counted_from_signature_to_closing_brace(self):
        self.assertEqual(self.measured(f"namespace a::b {{\n{function('One', 3)}\n{function('Two', 5)}}}\n"),
                         [("5", "6", "Two"), ("3", "2", "One")])

    def test_a_signature_may_take_several_lines(self):
        self.assertEqual(self.measured("""
template <typename T,
          int n = 3>
int Deep(std::map<int, T> values,
         Options options = {}) noexcept {
  return 0;
}
"""), [("6", "2", "Deep")])

    def test_members_and_their_initialisers(self):
        self.assertEqual(self.measured("""
class Outer::Inner final : public Base<void(int)> {
 public:
  explicit Inner(int a)
      : a_{a}, b_(b, {1}), Base<int>{[] { return 1; }} {
    Call();
  }
  int size() const { return size_; }
  bool operator==(const Inner& other) const = default;
  bool operator<(const Inner& other) const {
    return a_ < other.a_;
  }

 private:
  struct Row {
    int a = 0, b{};
  };
  enum class Kind : int { kOne };
  std::function<void(int)> call_{nullptr};
  std::vector<Row> rows_ = {{1, 2}, {3, 4}};
};
"""), [("4", "4", "Inner"), ("3", "10", "operator"), ("1", "8", "size")])

    def test_what_stands_in_a_function_belongs_to_it(self):
        self.assertEqual(self.measured("""void Outer() {
  struct Local {
    void Member() {
      Call();
    }
  };
  auto call = [](int a) {
    if (a) { return '}'; }
    return "}"[0];  // }
  };
}
"""), [("11", "1", "Outer")])

    def test_tables_and_types_are_no_functions(self):
        self.assertEqual(self.measured("""
constexpr std::array<int, 2> kTable = {Call(1),
                                       Call(2)};
const std::map<int, void (*)()> kCalls{{1, [] {
                                          Call();
                                        }}};
const auto kSize = Size(kTable) + Extra{
    1};
extern "C" {
typedef struct value {
  int a;
} value_t;
int Read(const value_t* value) {
  return Call(1'000, [] { return 2'000; });
}
}
"""), [("3", "13", "Read")])

    def test_of_a_condition_the_first_branch_counts(self):
        self.assertEqual(self.measured("""
#define BOTH { \\
  {
#ifdef A
void F() {
#else
#if B
void F(int) {
#endif
void F(long) {
#endif
}
void G() {
}
"""), [("8", "5", "F"), ("2", "13", "G")])


class Report(MadeTree, unittest.TestCase):
    FLAT = {
        "CMakeLists.txt": 'target_include_directories(x PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/manager/rules"\n'
                          '  "${PROJECT_SOURCE_DIR}/tests")\n',
        "manager/relay.cc": '#include "relay.h"\n#include "rule.h"\n#include "wire.pb.h"\n#include <sysrepo.h>\n',
        "manager/relay.h": '#include "lib/text.h"\n',
        "manager/rules/rule.h": '#include "relay.h"\n',
        "manager/rules/journal.h": "",
        "lib/text.h": '#include "unknown.h"\n' + "\n" * 400,
        "lib/journal.h": "",
        "proto/wire.proto": "",
        "tests/fakes/journal.h": "",
        "tests/a_test.cc": '#include "fakes/journal.h"\n#include "journal.h"\n#include "vxmw/vxmw.h"\n',
        "platform/vxmidware/include/vxmw/vxmw.h": "",
        "src/main.cc": function("main", 40) + function("Two", 2) + function("Three", 4),
    }

    def section(self, output, title):
        lines = re.search(rf"^{title}.*:\n((?:  .*\n)+)", output, re.MULTILINE)[1]
        return [" ".join(line.split()) for line in lines.splitlines()]

    def test_a_flat_tree(self):
        output = self.passes(self.FLAT, "--report")
        self.assertIn("manager/rules 2", self.section(output, "Files by folder"))
        self.assertEqual(self.section(output, "Includes from room to room"),
                         ["manager -> lib 1", "manager -> manager/rules 1", "manager -> proto 1",
                          "manager/rules -> manager 1", "tests -> manager/rules 1", "tests -> platform/vxmidware 1"])
        self.assertEqual(self.section(output, "Circles between rooms"), ["manager -> manager/rules -> manager"])
        self.assertEqual(self.section(output, "Not counted"), ['lib/text.h:1 "unknown.h"'])

    def test_sizes(self):
        output = self.passes({**self.FLAT, "base/long.h": "\n" * 301}, "--report")
        self.assertEqual(self.section(output, "Functions, in lines"), ["number 3", "median 4", "90th percentile 40"])
        self.assertEqual(self.section(output, "The longest functions")[0], "40 src/main.cc:1 main")
        self.assertEqual(self.section(output, "Files of more than 300 lines"), ["301 base/long.h"])

    def test_a_clean_tree_has_no_circles(self):
        self.assertEqual(self.section(self.passes(CLEAN, "--report"), "Circles between rooms"), ["none"])


if __name__ == "__main__":
    unittest.main()
