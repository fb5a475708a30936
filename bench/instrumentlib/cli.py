"""The command line of bench/instrument, and how it and its sisters tell errors."""

import sys

from .errors import BenchError


def report(name, command):
    """Runs a command; an error is told on standard error, with the program's name. Returns the exit status."""
    try:
        return command()
    except BenchError as error:
        print(f"{name}: {error}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        return 1
    except OSError as error:
        print(f"{name}: {error}", file=sys.stderr)
        return 1


def main():
    """Returns the exit status."""
    return report("instrument", _main)


def _main():
    """`exec` takes the short way: it is called often and must be quick."""
    if len(sys.argv) > 1 and sys.argv[1] == "exec":
        from . import enter
        return enter.main(sys.argv[2:])
    from . import subcommands
    return subcommands.main(sys.argv[1:])
