"""What was measured, as a table and as JSON."""

import json
from dataclasses import dataclass, field
from typing import Optional


@dataclass
class Row:
    """One measure. `value` is what the target is about: a ratio, or a number of its own unit.

    Without a target the row is for information.
    """

    measure: str
    ours: str
    theirs: str = ""
    value: Optional[float] = None
    value_text: str = ""
    target: Optional[float] = None
    target_text: str = ""
    samples: dict = field(default_factory=dict)

    @property
    def met(self):
        return None if self.target is None else self.value <= self.target

    @property
    def verdict(self):
        return {None: "", True: "met", False: "NOT met"}[self.met]


def milliseconds(nanoseconds):
    value = nanoseconds / 1e6
    return f"{value:,.0f} ms" if value >= 100 else f"{value:.3g} ms"


def mebibytes(kibibytes):
    return f"{kibibytes / 1024:.1f} MiB"


def ratio_row(measure, ours, theirs, target=None, target_text=None, samples=None):
    """A row of two times in nanoseconds."""
    ratio = ours / theirs
    if target_text is None:
        target_text = "" if target is None else f"<= {target:g}"
    return Row(measure, milliseconds(ours), milliseconds(theirs), ratio, f"{ratio:.3g}", target,
               target_text, samples or {})


COLUMNS = ("measure", "ours", "theirs", "ratio", "target", "")


def table(rows):
    cells = [COLUMNS] + [(row.measure, row.ours, row.theirs, row.value_text, row.target_text,
                          row.verdict) for row in rows]
    widths = [max(len(line[column]) for line in cells) for column in range(len(COLUMNS))]
    lines = []
    for line in cells:
        texts = [line[0].ljust(widths[0])]
        texts += [text.rjust(width) for text, width in zip(line[1:5], widths[1:5])]
        lines.append("  ".join(texts + [line[5]]).rstrip())
    lines.insert(1, "-" * max(len(line) for line in lines))
    return "\n".join(lines)


def as_json(rows, facts):
    measures = [{"measure": row.measure, "ours": row.ours, "theirs": row.theirs,
                 "value": row.value, "target": row.target, "met": row.met,
                 "samples": row.samples} for row in rows]
    return json.dumps({"machine": facts, "measures": measures}, indent=2) + "\n"
