"""What is made of the values: medians, their spread, and the verdict on each goal."""

import dataclasses
import statistics


@dataclasses.dataclass(frozen=True)
class Row:
    """The values of one measure of one case: ratios to the anchor's, or seconds without one."""
    case: str
    measure: str
    goal: float
    values: list
    anchored: bool
    seconds: float    # the command's own median

    @property
    def median(self):
        return statistics.median(self.values)

    @property
    def spread(self):
        """Half of what lies between the quartiles: half of the values are that near to the middle."""
        if len(self.values) < 2:
            return 0.0
        low, _, high = statistics.quantiles(self.values, n=4, method="inclusive")
        return (high - low) / 2

    @property
    def missed(self):
        """By more than the spread."""
        return self.median - self.spread > self.goal

    @property
    def verdict(self):
        if self.median <= self.goal:
            return "met"
        return "MISSED" if self.missed else "within the spread"


def seconds(value):
    """A time for people."""
    for unit, size in (("s", 1), ("ms", 1e-3)):
        if value >= size:
            return f"{value / size:.2f} {unit}"
    return f"{value * 1e6:.1f} us"


def text(rows):
    """The table, as documents show it."""
    lines = [("case", "measure", "goal", "median", "spread", "takes", "")]
    for row in rows:
        shown = "{:.2f}".format if row.anchored else seconds
        lines.append((row.case, row.measure, f"<= {shown(row.goal)}", shown(row.median),
                      f"+- {shown(row.spread)}", seconds(row.seconds), row.verdict))
    widths = [max(map(len, column)) for column in zip(*lines)]
    lines.insert(1, tuple("-" * width for width in widths))
    return "".join("| " + " | ".join(map(str.ljust, line, widths)) + " |\n" for line in lines)
