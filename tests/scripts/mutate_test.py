#!/usr/bin/env python3
"""The faults that scripts/mutate plants, on a source of a few lines: mutate_test.py ROOT"""
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(sys.argv.pop(1))
sys.path.insert(0, str(ROOT / "scripts/lib"))
import faults  # noqa: E402

SOURCE = r'''#include "a.h"  // 1 < 2
#define LIMIT(a, b) 3
constexpr int kLimit = 0x10;  /* never 4
  == 5 */
class Table {
  Table(const Table&) = delete;
  void Add(int key, int value);
};

int Table::Find(const std::string& name, int from) {
  const std::lock_guard lock(m_lock);
  if (from < 0) return -1;
  if (name.empty()) {
    g_Logger.LogEvent("Find", "1 == 2, %d",
                      from);
    return kNone;
  }
  m_rows[from].use(name, from);
  while (Next(&from, nullptr))
    ++m_count;
  for (auto& row : m_rows) row.clear();
  const int found = Seek(m_rows, m_names);
  return found;
}
'''

# Line, kind, what stands there afterwards; all that can be planted in the source.
EXPECTED = [
    (3, faults.CONSTANT, "constexpr int kLimit = 0x11;  /* never 4"),
    (3, faults.CONSTANT, "constexpr int kLimit = 0xf;  /* never 4"),
    (11, faults.LOCK, ""),
    (12, faults.CONSTANT, "if (from < 0) return -0;"),
    (12, faults.CONSTANT, "if (from < 0) return -2;"),
    (12, faults.EXIT, "if (from < 0) {}"),
    (12, faults.CONSTANT, "if (from < 1) return -1;"),
    (12, faults.COMPARISON, "if (from <= 0) return -1;"),
    (12, faults.COMPARISON, "if (from >= 0) return -1;"),
    (13, faults.COMPARISON, "if (!(name.empty())) {"),
    (14, faults.ARGUMENTS, 'g_Logger.LogEvent("1 == 2, %d", "Find",'),
    (14, faults.STATEMENT, "{}"),
    (16, faults.EXIT, "{}"),
    (18, faults.ARGUMENTS, "m_rows[from].use(from, name);"),
    (18, faults.STATEMENT, "{}"),
    (19, faults.COMPARISON, "while (!(Next(&from, nullptr)))"),
    (20, faults.STATEMENT, "{}"),
    (21, faults.STATEMENT, "for (auto& row : m_rows) {}"),
    (22, faults.ARGUMENTS, "const int found = Seek(m_names, m_rows);"),
]


class Faults(unittest.TestCase):
    def setUp(self):
        self.found = faults.faults_in("a.cpp", SOURCE)
        self.call = next(fault for fault in self.found if len(fault.old) == 2)

    def test_plants_every_kind_and_nothing_in_comments_texts_and_declarations(self):
        self.assertEqual([(fault.line, fault.kind, " ".join(faults.stripped(fault.new))) for fault in self.found], EXPECTED)

    def test_changes_the_lines_of_the_fault_alone(self):
        lines = SOURCE.split("\n")
        self.assertEqual(self.call.planted(SOURCE).split("\n"), lines[:13] + ["    {}"] + lines[15:])

    def test_draws_by_the_seed_and_whatever_else_stands_in_the_file(self):
        order = [fault.key() for fault in faults.drawn(self.found, 1)]
        self.assertEqual(sorted(order), sorted(fault.key() for fault in self.found))
        self.assertNotEqual(order, [fault.key() for fault in faults.drawn(self.found, 2)])
        moved = faults.drawn(faults.faults_in("a.cpp", "int a;\n" + SOURCE), 1)
        self.assertEqual([fault.key() for fault in moved], order)
        lines = {fault.line for fault in self.found}
        self.assertEqual(len({fault.line for fault in faults.drawn(self.found, 1)[:len(lines)]}), len(lines))

    def test_reads_what_it_writes_and_finds_it_where_it_has_moved(self):
        [(read, why)] = faults.read_list("# a remark\n\n" + self.call.text() + "\nwhy: nobody\nreads it\n")
        self.assertEqual((read.key(), why), (self.call.key(), "nobody reads it"))
        moved = "\n" + SOURCE + SOURCE
        self.assertEqual(faults.located(read, moved).planted(moved), "\n" + self.call.planted(SOURCE).replace("    {}", "{}", 1) + SOURCE)
        self.assertIsNone(faults.located(read, "int a;"))
        with self.assertRaisesRegex(ValueError, "begins with FILE:LINE"):
            list(faults.read_list("- a\n+ b"))

    def test_lists_the_same_faults_for_the_same_seed(self):
        def listed(*arguments):
            return subprocess.run([sys.executable, ROOT / "scripts/mutate", *arguments], capture_output=True, text=True)

        some = listed("--list", "-n", "3", "-s", "7", "Common/Base64.cpp")
        self.assertEqual((some.returncode, some.stdout.count("Common/Base64.cpp:")), (0, 3))
        self.assertEqual(listed("--list", "-n", "3", "-s", "7", "Common/Base64.cpp").stdout, some.stdout)
        for wrong, told in (([], "give folders or files"), (["none"], "no sources at none"),
                            (["Common", "--until", "noon"], "\"noon\" is no time"), (["Common", "-n", "0"], "numbers begin at 1")):
            refusal = listed("--list", *wrong)
            self.assertNotEqual(refusal.returncode, 0)
            self.assertIn(told, refusal.stderr)


TOY = {
    "CMakeLists.txt": """
cmake_minimum_required(VERSION 3.25)
project(Toy LANGUAGES CXX)
enable_testing()
foreach(name near far)
  add_executable(${name} Common/limit.cpp tests/${name}.cpp)
  add_test(NAME ${name} COMMAND ${name})
endforeach()
set_tests_properties(near PROPERTIES LABELS common)
""",
    "CMakePresets.json": """
{"version": 6,
 "configurePresets": [{"name": "dev", "generator": "Ninja", "binaryDir": "${sourceDir}/build/dev"}],
 "testPresets": [{"name": "dev", "configurePreset": "dev"}]}
""",
    "Common/limit.cpp": """
int Limited(int value) {
  if (value > 9) value -= 10;
  if (value < 0) return 0;
  return value;
}
""",
    # The one looks far inside the limits only; the other also writes outside of its copy.
    "tests/near.cpp": "int Limited(int);\nint main() { return Limited(5) != 5 || Limited(-5) != 0; }\n",
    "tests/far.cpp": """
#include <stdio.h>
int Limited(int);
int main() {
  fopen(TRACE, "w");
  return Limited(13) != 3 || Limited(9) != 9 || Limited(-1) != 0;
}
""",
    "scripts/lib/equivalent-faults": """
Common/limit.cpp:4
- if (value < 0) return 0;
+ if (value <= 0) return 0;
why: 0 is 0 either way
""",
}


class Planting(unittest.TestCase):
    def test_prints_what_no_test_notices_and_touches_nothing(self):
        with tempfile.TemporaryDirectory() as folder:
            toy = pathlib.Path(folder) / "toy"
            for name, text in TOY.items():
                (toy / name).parent.mkdir(parents=True, exist_ok=True)
                (toy / name).write_text(text.replace("TRACE", f'"{folder}/trace"'))
            for name in ("mutate", "lib/faults.py"):
                shutil.copy(ROOT / "scripts" / name, toy / "scripts" / name)
            run = subprocess.run([toy / "scripts/mutate", "Common", "--jobs", "2"], capture_output=True, text=True)
            self.assertIn("2 test programs pass without a fault", run.stderr)
            survivors = [line[2:] for line in run.stdout.split("\n") if line.startswith("+ ")]
            self.assertEqual(sorted(survivors), ["if (value < 1) return 0;", "if (value > 10) value -= 10;"])
            self.assertIn("9 of 11 faults noticed (81 %), 2 survived", run.stdout)
            self.assertEqual((toy / "Common/limit.cpp").read_text(), TOY["Common/limit.cpp"])
            self.assertEqual(sorted(file.name for file in pathlib.Path(folder).iterdir()), ["toy"])


if __name__ == "__main__":
    unittest.main()
