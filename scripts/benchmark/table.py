"""What is made of the values: medians, their spread, and the verdict on each goal."""

import dataclasses
import statistics


@dataclasses.dataclass(frozen=True)
class Row:
    """The values of one measure of one case: ratios to the anchor's, or the measure's own unit without
    one."""
    case: str
    measure: str
    goal: float    # or None
    values: list
    anchored: bool
    own: float    # the command's own median
    calls: str = ""
    kept: float = None    # the median of an earlier run

    @property
    def median(self):
        """Or what the measure asks for instead."""
        if self.measure == "p99" and len(self.values) > 1:
            return statistics.quantiles(self.values, n=100, method="inclusive")[98]
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
        return self.goal is not None and self.median - self.spread > self.goal

    @property
    def verdict(self):
        if self.goal is None:
            return ""
        if self.median <= self.goal:
            return "met"
        return "MISSED" if self.missed else "within the spread"

    @property
    def change(self):
        """What became of the kept median."""
        return f"{100 * (self.median / self.kept - 1):+.0f} %" if self.kept else ""

    def shown(self, value):
        return f"{value:.2f}" if self.anchored else in_unit(self.measure, value)


def seconds(value):
    """A time for people."""
    for unit, size, least, digits in (("s", 1, 1, 2), ("ms", 1e-3, 1e-3, 2), ("us", 1e-6, 1e-7, 1)):
        if value >= least:
            return f"{value / size:.{digits}f} {unit}"
    return f"{value * 1e9:.1f} ns"


def size(value):
    return f"{value / 2**20:.1f} MiB" if value >= 2**20 else f"{value / 1000:.2f} kB"


# Of measures that are not in seconds.
UNITS = {"cache": size, "memory": size, "bytes a second": size, "core": lambda value: f"{100 * value:.2f} %"}


def in_unit(measure, value):
    return UNITS.get(measure, seconds)(value)


def text(rows):
    """The table, as documents show it. Columns in which nothing stands are left out."""
    lines = [("case", "measure", "goal", "median", "spread", "takes", "", "kept", "change",
              "calls for a GiB")]
    for row in rows:
        goal = "" if row.goal is None else f"<= {row.shown(row.goal)}"
        kept = "" if row.kept is None else row.shown(row.kept)
        lines.append((row.case, row.measure, goal, row.shown(row.median),
                      f"+- {row.shown(row.spread)}", in_unit(row.measure, row.own), row.verdict,
                      kept, row.change, row.calls))
    columns = [column for index, column in enumerate(zip(*lines)) if index < 7 or any(column[1:])]
    widths = [max(map(len, column)) for column in columns]
    lines = [*zip(*columns)]
    lines.insert(1, tuple("-" * width for width in widths))
    return "".join("| " + " | ".join(map(str.ljust, line, widths)) + " |\n" for line in lines)
