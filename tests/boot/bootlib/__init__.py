"""The parts of tests/boot/boot.py."""
