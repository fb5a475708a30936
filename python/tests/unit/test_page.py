"""docs/python.md names a method for every command of the protocol, and the errors as they are."""

from __future__ import annotations

import pathlib
import re

import pytest

import tessary

PAGE = (pathlib.Path(__file__).resolve().parents[3] / "docs" / "python.md").read_text(encoding="utf-8")
METHODS = dict(re.findall(r"\| `([^`]+)` \| ((?:`\w+`(?:, )?)+) (?=\|)", PAGE))


@pytest.mark.parametrize("word", tessary.COMMANDS)
def test_a_command_has_a_method(word: str) -> None:
    for method in re.findall(r"`(\w+)`", METHODS[word]):
        assert callable(getattr(tessary.Controller, method)), method


@pytest.mark.parametrize(("name", "base", "kind"), re.findall(r"^\| `(\w+Error)` \| (?:`(\w+)`)? *\| `([\w-]+)`", PAGE, re.M))
def test_an_error_is_what_the_page_says(name: str, base: str, kind: str) -> None:
    error = getattr(tessary, name)
    assert issubclass(error, tessary.TessaryError)
    assert name == "UpdateError" or error.kind == kind
    assert not base or base in [entry.__name__ for entry in error.__mro__]


def test_the_page_has_all_errors() -> None:
    named = {name for name in tessary.__all__ if name.endswith("Error")}
    assert {name for name in named if f"`{name}`" not in PAGE} == set()
