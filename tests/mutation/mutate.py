#!/usr/bin/python3
"""Makes random small mistakes in src/, one at a time, and tells which of them the unit tests see. Called by script/mutate."""

import argparse
import fnmatch
import os
import subprocess
import sys
import time

FOLDER = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(FOLDER))
sys.dont_write_bytecode = os.stat(FOLDER).st_uid != os.geteuid()  # nothing of root's in a user's checkout
sys.path.insert(0, FOLDER)

from mutationlib.cases import Cases  # noqa: E402  (the path must be set first)
from mutationlib.changes import changes_of, found_again, in_random_order  # noqa: E402
from mutationlib.report import SEEN, Report, earlier_changes, told  # noqa: E402
from mutationlib.tree import BuildFailed, Tree  # noqa: E402


def parse(arguments):
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--files", nargs="+", metavar="PATTERN", default=["src/*"])
    parser.add_argument("--again", metavar="REPORT")
    parser.add_argument("--only", metavar="N,N", type=lambda text: {int(number) for number in text.split(",")})
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--keep-going", action="store_true")
    parser.add_argument("--preset", choices=["release", "asan"], default="release")
    parser.add_argument("--jobs", type=int, default=3 * (os.cpu_count() or 1))
    parser.add_argument("--output", default=os.path.join(REPOSITORY, "build", "mutation"))
    parser.add_argument("--only-check", action="store_true", help=argparse.SUPPRESS)  # the script asks before it begins
    options = parser.parse_args(arguments)
    options.output = os.path.realpath(options.output)
    return options


def all_changes(options, checkout):
    """Every change of the chosen sources. The unit tests do not link main()."""
    names = sorted(os.path.relpath(os.path.join(folder, name), checkout)
                   for folder, _, files in os.walk(os.path.join(checkout, "src")) for name in files)
    changes = []
    for name in names:
        fits = any(fnmatch.fnmatch(name, pattern) for pattern in options.files)
        if fits and name.endswith((".cpp", ".h")) and name != "src/app/main.cpp":
            with open(os.path.join(checkout, name), encoding="utf-8") as file:
                changes += changes_of(name, file.read())
    return changes


def chosen_changes(options, checkout):
    """Numbered changes to try, and those of an earlier report whose lines are gone."""
    changes = all_changes(options, checkout)
    if options.again:
        numbered = [(number, found_again(change, changes), change) for number, change in earlier_changes(options.again, options.only)]
    else:
        numbered = [(number, change, change) for number, change in enumerate(in_random_order(changes, options.seed), 1)
                    if not options.only or number in options.only]
    return ([(number, change) for number, change, _ in numbered if change],
            [(number, earlier) for number, change, earlier in numbered if not change])


def prepare(options, tree, cases):
    """The unchanged tree, built, and its tests' times. False, and the reason told, when they do not pass."""
    print(f"== unchanged tree, {options.preset}", flush=True)
    tree.refresh()
    tree.configure()
    if not tree.build():
        print(f"the unchanged tree does not build; see {tree.log}")
        return False
    cases.find()
    times = os.path.join(tree.scratch, f"times-{options.preset}.json")
    if not cases.recall(times):
        others = cases.measure()
        for name, result in others.items():
            print(f"   {name}: {result}")
        if any(result in SEEN for result in others.values()):
            print("cases fail without any change: nothing can be told from them")
            return False
        cases.remember(times)
    cases.keep_programs()
    return True


def try_change(options, tree, cases, change):
    """The result of one change, and the cases that saw it."""
    tree.apply(change)
    if not tree.build():
        return "not compiling", {}
    failed = cases.see(change, options.keep_going)
    return ("seen" if failed else "survived"), failed


def run(options, report, tree, cases, changes):
    """Tries one change after another until enough have run."""
    total = len(changes) if options.again or options.only else min(options.count, len(changes))
    for number, change in changes:
        if not options.again and report.counted() >= options.count:
            break
        began = time.monotonic()
        result, failed = try_change(options, tree, cases, change)
        row = report.add(number, change, result, time.monotonic() - began, failed)
        print(f"[{report.counted()}/{total}] {told(row)}", flush=True)


def commit_of(checkout):
    """Which sources these are, as git names them."""
    described = subprocess.run(["git", "-C", checkout, "describe", "--always", "--dirty"], capture_output=True, check=False)
    return described.stdout.decode().strip()


def new_report(options):
    """The report of this run, named after what it tries."""
    head = {"again": options.again} if options.again else {"seed": options.seed}
    name = "again" if options.again else f"seed-{options.seed}"
    return Report(os.path.join(options.output, f"{name}-{options.preset}"),
                  {**head, "preset": options.preset, "sources": commit_of(REPOSITORY)})


def main(arguments):
    options = parse(arguments)
    changes, gone = chosen_changes(options, REPOSITORY)
    if options.only_check:
        return 0
    if options.list:
        for number, change in changes if options.again else changes[:options.count]:
            print(f"{number:4}  {change.told()}")
        return 0
    os.makedirs(options.output, exist_ok=True)
    tree = Tree(REPOSITORY, options.output, options.preset)
    cases = Cases(tree, options.jobs)
    report = new_report(options)
    try:
        if not prepare(options, tree, cases):
            return 2
        for number, change in gone:
            report.add(number, change, "gone", 0)
        run(options, report, tree, cases, changes)
    except BuildFailed as error:
        print(error)
        return 2
    except KeyboardInterrupt:
        return 130
    finally:
        tree.restore()
    print(f"\n{report.text()}\n{report.path}.txt and .json")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
