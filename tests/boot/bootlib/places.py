"""Where things are."""

import pathlib

TREE = pathlib.Path(__file__).resolve().parents[3]
