"""Numbers and tables as Markdown."""


def number(value, digits=0):
    """With thousands separators; a dash for what was not measured."""
    return "–" if value is None else f"{value:,.{digits}f}"


def times(value, digits=2):
    """A ratio."""
    return "–" if value is None else f"{value:.{digits}f} ×"


def seconds_per_million(value):
    """Processor time."""
    return "–" if value is None else f"{value:.2f}"


def milliseconds(value):
    """With as many digits as make sense."""
    if value is None:
        return "–"
    size = abs(value)
    return f"{value:,.0f} ms" if size >= 100 else f"{value:.1f} ms" if size >= 1 else f"{value:.2f} ms"


def table(head, rows):
    """A table whose first column holds words, the others numbers."""
    lines = ["| " + " | ".join(head) + " |", "|---|" + "---:|" * (len(head) - 1)]
    return "\n".join(lines + ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows])


def met_without_loss(lost, rate, aim_rate):
    """For `verdict`: None when the sender did not come near the rate, so that no loss proves nothing."""
    if lost is None or (lost == 0 and rate < 0.97 * aim_rate):
        return None
    return lost == 0


def verdict(aim, met, measured):
    """One line on an aim; `met` is None when it was not measured."""
    word = "not measured" if met is None else "**met**" if met else "**not met**"
    return f"- Aim: {aim}: {word} ({measured})."
