"""Finds what can be changed in a source: each change is a small mistake that a person could have made."""

import dataclasses
import random
import re

_COMPARISONS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"]}
_OPERATORS = {"&&": "||", "||": "&&", "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&",
              "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|="}

# Comments, literals and directives hold nothing to change; a quote between digits is no literal.
_OPAQUE = re.compile(r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"""
                     r"""|^[ \t]*\#(?:[^\n\\]|\\\n|\\.)*""", re.DOTALL | re.MULTILINE)
# The layout puts blanks around binary operators, and none around the brackets of templates.
_COMPARISON = re.compile(r"(?<=\s)(==|!=|<=|>=|<|>)(?=\s)")
_OPERATOR = re.compile(r"(?<=\s)(&&|\|\||\+=|-=|\|=|&=|<<|>>|[-+*/%&|])(?=\s)")
_STEP = re.compile(r"\+\+|--")
_NOT = re.compile(r"!(?=[\w(*:])")
_NUMBER = re.compile(r"(?<![\w.])(0[xX][0-9a-fA-F]+|\d+)(\.\d+)?([uUlL]*)(?![\w.])")
_TRUTH = re.compile(r"\b(true|false)\b")
_JUMP = re.compile(r"\b(?:break|continue|return\b[^;{}]*);")
_BRANCH = re.compile(r"\b(?:if|while)\s*\(")
_TERNARY = re.compile(r"\s\?\s")
_PARTING = re.compile(r"(?:[,;]|\s[-+*|&]?=|\s<<|\breturn)$")
# A call, an assignment, a step or a deletion at the start of an indented line; two words are a declaration.
_STATEMENT = re.compile(
    r"^[ \t]+((?:Q_EMIT\s+|delete\s+)?(?:\+\+|--|\*|::)?\w+(?:(?:\.|->|::)~?\w+|\[[^\]\n]*\])*(?:<[^;()=\n]*>)?"
    r"\s*(?=[(;]|(?:[-+*/%&|]|<<|>>)?=(?!=)|\+\+|--|<<|\.|->))", re.MULTILINE)
_NO_STATEMENT = re.compile(r"(?:return|break|continue|if|while|for|switch|case|default|else|do|try|catch|using|public|private|"
                           r"protected|static_assert|Q_OBJECT)\b")


@dataclasses.dataclass(frozen=True)
class Change:
    """One change of one file: the text `old` at `offset` becomes `new`. `context` is the whole line, stripped."""

    file: str
    offset: int
    line: int
    kind: str
    old: str
    new: str
    context: str

    def applied(self, text):
        """The file's text with the change."""
        assert text.startswith(self.old, self.offset)
        return text[:self.offset] + self.new + text[self.offset + len(self.old):]

    def told(self):
        """The change in one line for people."""
        old, new = (" ".join(part.split()) for part in (self.old, self.new))
        became = f"  ->  {new}" if new.strip(";") else ""
        at = f"  in  {self.context}" if old != self.context else ""
        return f"{self.file}:{self.line} {self.kind}: {old}{became}{at}"

    def same_as(self, other):
        """True for the same change of a file whose lines may have moved."""
        return all(getattr(self, name) == getattr(other, name) for name in ("file", "kind", "old", "new", "context"))


def masked(text):
    """The text with blanks for comments, literals and directives; places stay."""
    return _OPAQUE.sub(lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def _closing(code, start):
    """Place of the bracket that closes the one at `start`; None when there is none."""
    depth = 0
    for place in range(start, len(code)):
        depth += (code[place] in "([{") - (code[place] in ")]}")
        if depth == 0:
            return place
    return None


def _numbers(code):
    for match in _NUMBER.finditer(code):
        digits, fraction, suffix = match.groups()
        value = int(digits, 16 if digits[:2] in ("0x", "0X") else 10)
        for other in (value + 1, value - 1):
            if other >= 0:
                written = f"0x{other:0{len(digits) - 2}X}" if digits[:2] in ("0x", "0X") else str(other)
                yield match.start(), match.group(), written + (fraction or "") + suffix, "constant off by one"
    for match in _TRUTH.finditer(code):
        yield match.start(), match.group(), "false" if match.group() == "true" else "true", "constant turned"


def _operators(code):
    for match in _COMPARISON.finditer(code):
        for other in _COMPARISONS[match.group()]:
            yield match.start(), match.group(), other, "comparison turned"
    for match in _OPERATOR.finditer(code):
        yield match.start(), match.group(), _OPERATORS[match.group()], "operator swapped"
    for match in _STEP.finditer(code):
        yield match.start(), match.group(), "--" if match.group() == "++" else "++", "operator swapped"
    for match in _NOT.finditer(code):
        yield match.start(), "!", "", "operator left out"


def _branches(text, code):
    for match in _BRANCH.finditer(code):
        end = _closing(code, match.end() - 1)
        if end:
            begin = code.rfind(";", match.end(), end) + 1 or match.end()  # behind an initialisation
            begin += len(code[begin:end]) - len(code[begin:end].lstrip())
            yield begin, text[begin:end], f"!({text[begin:end]})", "branch inverted"
    for match in _TERNARY.finditer(code):
        begin = _start_of_condition(code, match.start())
        yield begin, text[begin:match.start()], f"!({text[begin:match.start()]})", "branch inverted"


def _start_of_condition(code, end):
    """Where the condition in front of a "?" begins: behind what opens or parts expressions."""
    depth = 0
    for place in range(end - 1, -1, -1):
        depth += (code[place] in ")]}") - (code[place] in "([{")
        if depth < 0 or (depth == 0 and _PARTING.search(code, max(0, place - 8), place + 1)):
            begin = place + 1
            return begin + len(code[begin:end]) - len(code[begin:end].lstrip())
    return 0


def _jumps(text, code):
    for match in _JUMP.finditer(code):
        yield match.start(), text[match.start():match.end()], ";", "jump left out"


def _statements(text, code):
    for match in _STATEMENT.finditer(code):
        begin = match.start(1)
        before = code[:begin].rstrip()
        starts = before[-1:] in tuple(";{}:)") or re.search(r"\b(?:else|do)$", before)
        end = _end_of_statement(code, begin)
        if starts and end and not _NO_STATEMENT.match(code, begin):
            yield begin, text[begin:end], ";", "statement left out"


def _end_of_statement(code, begin):
    """Behind the ";" that ends the statement; None for what is none, such as the head of a function."""
    place = begin
    while place < len(code) and code[place] not in ";{}":
        place = (_closing(code, place) or len(code)) if code[place] in "([" else place
        place += 1
    return place + 1 if code[place:place + 1] == ";" else None


def changes_of(file, text):
    """All changes of a source, in the order of their places."""
    code = masked(text)
    found = [*_numbers(code), *_operators(code), *_branches(text, code), *_jumps(text, code)]
    if not file.endswith(".h"):  # a class's declarations look like statements
        found += _statements(text, code)
    changes = set()
    for offset, old, new, kind in found:
        line = text.count("\n", 0, offset) + 1
        changes.add(Change(file, offset, line, kind, old, new, text.split("\n")[line - 1].strip()))
    return sorted(changes, key=lambda change: (change.offset, change.kind, change.new))


def in_random_order(changes, seed):
    """One change of each line, both at random: so a long expression counts no more than a short one."""
    lines = {}
    for change in changes:
        lines.setdefault((change.file, change.line), []).append(change)
    order = random.Random(seed)
    places = sorted(lines)
    order.shuffle(places)
    return [order.choice(lines[place]) for place in places]


def found_again(change, changes):
    """The same change in sources that have changed since, the nearest of several; None when its line is gone."""
    same = [other for other in changes if other.same_as(change)]
    return min(same, key=lambda other: abs(other.line - change.line), default=None)
