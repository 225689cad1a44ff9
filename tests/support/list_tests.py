#!/usr/bin/env python3
"""Prints the tests of Python files, one Class.method a line, without importing the files.

A test is what unittest would find: a method test* of a class that is a TestCase, by itself or by a base class of the
same file. A file without tests is an error, and so is a test method that unittest would not find.
"""

import ast
import pathlib
import sys


def own_tests(node):
    functions = (ast.FunctionDef, ast.AsyncFunctionDef)
    return [entry.name for entry in node.body if isinstance(entry, functions) and entry.name.startswith("test")]


class Classes:
    """The classes of one file."""

    def __init__(self, path):
        tree = ast.parse(pathlib.Path(path).read_text(encoding="utf-8"), filename=str(path))
        self.nodes = {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}
        self.inner = [node for node in ast.walk(tree) if isinstance(node, ast.ClassDef) and node not in tree.body]

    def lineage(self, name):
        """The class and the base classes that this file defines, the class itself first."""
        found = [name]
        for base in self.bases(name):
            if base in self.nodes:
                found += self.lineage(base)
        return found

    def bases(self, name):
        return [ast.unparse(base) for base in self.nodes[name].bases]

    def is_test_case(self, name):
        return any(base.endswith("TestCase") for entry in self.lineage(name) for base in self.bases(entry))

    def tests(self, name):
        """Each name once, however many classes of the lineage define it."""
        return list(dict.fromkeys(test for entry in self.lineage(name) for test in own_tests(self.nodes[entry])))


def list_tests(path):
    """The tests of a file; ValueError says what is wrong with it."""
    classes = Classes(path)
    cases = [name for name in classes.nodes if classes.is_test_case(name)]
    inherited = {base for name in cases for base in classes.lineage(name)}
    outside = [node.name for name, node in classes.nodes.items() if name not in inherited and own_tests(node)]
    outside += [node.name for node in classes.inner if own_tests(node)]
    if outside:
        raise ValueError(f"{path}: the tests of {', '.join(outside)} belong to no TestCase of this file")
    found = [f"{name}.{test}" for name in cases for test in classes.tests(name)]
    if not found:
        raise ValueError(f"{path}: no tests found")
    return found


def main():
    if len(sys.argv) < 2:
        sys.exit("usage: list_tests.py FILE...")
    try:
        for path in sys.argv[1:]:
            print("\n".join(list_tests(path)))
    except (OSError, SyntaxError, ValueError) as error:
        sys.exit(f"list_tests: {error}")


if __name__ == "__main__":
    main()
