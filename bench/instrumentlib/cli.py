"""The command line of bench/instrument."""

import sys

from .errors import BenchError


def main():
    """Returns the exit status. `exec` takes the short way: it is called often and must be quick."""
    try:
        if len(sys.argv) > 1 and sys.argv[1] == "exec":
            from . import enter
            return enter.main(sys.argv[2:])
        from . import subcommands
        return subcommands.main(sys.argv[1:])
    except BenchError as error:
        print(f"instrument: {error}", file=sys.stderr)
        return 1
    except BrokenPipeError:
        return 1
    except OSError as error:
        print(f"instrument: {error}", file=sys.stderr)
        return 1
