"""What became of the changes: report files for people and programs, and the changes of an earlier report."""

import collections
import json

from .changes import Change

SEEN = ("failed", "time-out")
_FIELDS = ("file", "offset", "line", "kind", "old", "new", "context")


class Report:
    """The results so far, written after each change: an interrupted run keeps what it found."""

    def __init__(self, path, head):
        self.path, self.head = path, head
        self.rows = []

    def add(self, number, change, result, seconds, failed=None):
        """`result` is seen, survived, "not compiling" or gone; `failed` the results of the cases that saw it."""
        row = {"number": number, **{name: getattr(change, name) for name in _FIELDS}, "result": result,
               "seconds": round(seconds, 1)}
        if failed:
            row["seen_by"] = [{"case": name, "how": case["result"], "said": case["said"]} for name, case in failed.items()]
        self.rows.append(row)
        self.write()
        return row

    def counted(self):
        """How many changes have run."""
        return sum(row["result"] in ("seen", "survived") for row in self.rows)

    def figures(self):
        """How many changes there are of each result."""
        return collections.Counter(row["result"] for row in self.rows)

    def write(self):
        with open(self.path + ".json", "w", encoding="utf-8") as file:
            json.dump({**self.head, "figures": self.figures(), "changes": self.rows}, file, indent=1)
        with open(self.path + ".txt", "w", encoding="utf-8") as file:
            file.write(self.text())

    def text(self):
        """The figures, then the changes that nobody saw, then all others."""
        figures = self.figures()
        lines = [", ".join(f"{name} {value}" for name, value in self.head.items()),
                 f"{self.counted()} changes ran: {figures['seen']} seen, {figures['survived']} survived "
                 f"({figures['not compiling']} more did not compile)"]
        for result in ("survived", "gone", "seen", "not compiling"):
            lines += [f"\n{result}:"] if figures[result] else []
            lines += [told(row) for row in self.rows if row["result"] == result]
        return "\n".join(lines) + "\n"


def told(row):
    """A change and what became of it, in one line."""
    change = Change(**{name: row[name] for name in _FIELDS})
    by = ", ".join(case["case"] + (" (time-out)" if case["how"] == "time-out" else "") for case in row.get("seen_by", []))
    return f"{row['number']:4}  {row['result'] + (' by ' + by if by else '')}, {row['seconds']:.0f} s: {change.told()}"


def earlier_changes(path, numbers=None):
    """Numbers and changes of a report: those that nobody saw, or those of these numbers."""
    with open(path, encoding="utf-8") as file:
        rows = json.load(file)["changes"]
    return [(row["number"], Change(**{name: row[name] for name in _FIELDS})) for row in rows
            if (row["number"] in numbers if numbers else row["result"] == "survived")]
