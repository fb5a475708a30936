"""The soak: random valid commands and faults on the unmodified daemon inside the virtual instrument."""
