"""The stubs of the compiled module tell what is in it, no more and no less."""

from __future__ import annotations

import ast
import pathlib

import pytest

import tessary
from tessary import _tessary

STUBS = pathlib.Path(tessary.__file__).with_name("_tessary.pyi")
TREE = ast.parse(STUBS.read_text(encoding="utf-8"))
CLASSES = {node.name: node for node in TREE.body if isinstance(node, ast.ClassDef) and node.name != "_Value"}


def names_in(body: list[ast.stmt]) -> set[str]:
    found = set()
    for node in body:
        if isinstance(node, ast.FunctionDef | ast.ClassDef):
            found.add(node.name)
        elif isinstance(node, ast.AnnAssign) and isinstance(node.target, ast.Name):
            found.add(node.target.id)
    return {name for name in found if not name.startswith("_")}


def public(names: list[str]) -> set[str]:
    return {name for name in names if not name.startswith("_")}


def test_the_module_has_what_the_stubs_say() -> None:
    assert public(dir(_tessary)) == names_in(TREE.body)


@pytest.mark.parametrize("name", CLASSES)
def test_a_class_has_what_the_stubs_say(name: str) -> None:
    real = getattr(_tessary, name)
    assert public(list(vars(real))) - {"as_dict"} == names_in(CLASSES[name].body)


@pytest.mark.parametrize("name", [name for name in CLASSES if hasattr(getattr(_tessary, name), "as_dict")])
def test_a_value_lists_its_fields(name: str) -> None:
    assert set(getattr(_tessary, name)._fields) <= names_in(CLASSES[name].body)


def test_the_package_gives_what_it_names() -> None:
    assert [name for name in tessary.__all__ if not hasattr(tessary, name)] == []
