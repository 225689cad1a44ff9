"""Lengths of files and functions, in lines."""

import math
import statistics

from . import cpp_source


class Sizes:
    def __init__(self, tree, folders):
        files = [file for file in tree.files if file.startswith(tuple(folder + "/" for folder in folders))]
        self.files = {file: tree.texts[file].count("\n") for file in files}
        self.functions = sorted(((function.lines, file, function.line, function.name)
                                 for file in files if not file.endswith(".proto")
                                 for function in cpp_source.functions(tree.texts[file])), reverse=True)
        self.lengths = sorted(lines for lines, *_ in self.functions) or [0]

    def median(self):
        return statistics.median(self.lengths)

    def percentile90(self):
        """The length that nine of ten functions do not exceed (nearest rank)."""
        return self.lengths[math.ceil(0.9 * len(self.lengths)) - 1]

    def longer_files(self, limit):
        """The longest first."""
        return sorted(((lines, file) for file, lines in self.files.items() if lines > limit), reverse=True)
