"""The example that measures into a file, with a virtual instrument, shorter than its ten minutes."""

from __future__ import annotations

import csv
import os
import pathlib
import subprocess
import sys

import pytest

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "measure_to_csv.py"

if os.geteuid() != 0:
    pytest.skip("the virtual instrument needs root", allow_module_level=True)


def test_rows_and_plot(tmp_path: pathlib.Path) -> None:
    output = tmp_path / "night.csv"
    done = subprocess.run(
        [sys.executable, str(EXAMPLE), "--virtual", "--seconds", "8", "--output", str(output)],
        capture_output=True, text=True, check=True, timeout=600,
    )
    assert "with 0 continuity errors" in done.stdout
    with output.open(encoding="utf-8", newline="") as file:
        rows = [row for row in csv.DictReader(file) if row["present"] == "True"]
    assert len(rows) >= 3 and all(4_000_000 < int(row["bit_rate"]) < 7_000_000 for row in rows)
    assert output.with_suffix(".png").read_bytes().startswith(b"\x89PNG")
