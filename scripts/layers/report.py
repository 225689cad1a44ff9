"""What a tree looks like, as tables for people, without any judgement."""

import collections
import os

from .circles import Arrow, between_rooms, circles


def print_table(title, rows):
    print(f"\n{title}")
    widths = [max(len(str(cell)) for cell in column) for column in zip(*rows)]
    for row in rows or [("none",)]:
        cells = (f"{cell:{width}}" for cell, width in zip(row, widths or [0]))
        print("  " + "  ".join(cells).rstrip())


def resolved(tree):
    """The arrows of a tree of any layout, and the quoted includes that cannot be told."""
    directories = tree.include_directories()
    arrows, untold = [], []
    for file, include in tree.includes():
        target = tree.resolve(file, include, directories)
        if target:
            arrows.append(Arrow(file, include.line, target))
        elif include.quoted:
            untold.append((f"{file}:{include.line}", f'"{include.name}"'))
    return arrows, untold


def print_report(tree, sizes, max_lines, room_of):
    arrows, untold = resolved(tree)
    pairs = between_rooms(arrows, lambda file: room_of(file) or os.path.dirname(file))
    print_table("Files by folder:", sorted(collections.Counter(map(os.path.dirname, tree.files)).items()))
    print_table("Includes from room to room:", [(f"{a} -> {b}", len(pairs[a, b])) for a, b in sorted(pairs)])
    print_table("Circles between rooms:", [(" -> ".join(circle),) for circle in circles(pairs)])
    print_table("Not counted, as no file or several could be meant:", untold)
    print_table("Functions, in lines:", [("number", len(sizes.functions)), ("median", sizes.median()),
                                         ("90th percentile", sizes.percentile90())])
    print_table("The longest functions:", [(lines, f"{file}:{line}", name)
                                           for lines, file, line, name in sizes.functions[:5]])
    print_table(f"Files of more than {max_lines} lines:", sizes.longer_files(max_lines))
