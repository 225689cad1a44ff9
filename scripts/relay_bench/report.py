"""Tables, and aims that are met or missed."""

TOLERANCE = 1.2  # an aim missed by more than this factor fails the run


def table(rows):
    widths = [max(len(str(row[i])) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  " + "  ".join(str(cell).rjust(width) for cell, width in zip(row, widths)))


class Aims:
    """What is to be reached, checked as it is measured."""

    def __init__(self):
        self.failed = []

    def at_most(self, what, found, aim):
        self._judge(f"{what}: {found:.2f}, aim at most {aim:g}", found <= aim, found <= aim * TOLERANCE)

    def at_least(self, what, found, aim):
        self._judge(f"{what}: {found:.2f}, aim at least {aim:g}", found >= aim, found >= aim / TOLERANCE)

    def _judge(self, text, met, tolerated):
        print(f"  {'met' if met else 'missed' if tolerated else 'FAILED'}: {text}")
        if not tolerated:
            self.failed.append(text)

    def report(self):
        """The exit status."""
        if self.failed:
            print("\naims missed by more than a fifth:\n  " + "\n  ".join(self.failed))
        return 1 if self.failed else 0
