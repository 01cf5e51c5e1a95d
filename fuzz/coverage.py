#!/usr/bin/env python3
"""Prints how many lines of each source file the fuzz targets reached, held against fuzz/floors.

usage: fuzz/coverage.py BUILD TARGET...   BUILD/TARGET.profdata and BUILD/fuzz/fuzz_TARGET exist
       fuzz/coverage.py --missed BUILD TARGET...   the lines that were not reached, of the files that have a floor
"""
import os
import subprocess
import sys

FLOORS = os.path.join(os.path.dirname(__file__), "floors")


def floors():
    found = {}
    for number, line in enumerate(open(FLOORS), 1):
        words = line.split("#")[0].split()
        if not words:
            continue
        if len(words) != 3 or not words[2].isdigit() or not os.path.isfile(words[1]):
            sys.exit(f"{FLOORS}:{number}: a target, a source file that exists and a per cent are needed: {line.strip()}")
        found.setdefault(words[0], {})[words[1]] = int(words[2])
    return found


def lines_of(build, target):
    """Source file -> line -> whether it was reached."""
    command = ["llvm-cov-14", "export", "--format=lcov", f"--instr-profile={build}/{target}.profdata",
               f"{build}/fuzz/fuzz_{target}"]
    output = subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout
    lines, current = {}, {}
    for line in output.splitlines():
        kind, _, rest = line.partition(":")
        if kind == "SF":
            current = lines.setdefault(os.path.relpath(rest), {})
        elif kind == "DA":
            number, count = rest.split(",")[:2]
            current[int(number)] = int(count) > 0
    return lines


def main(arguments):
    missed = arguments[:1] == ["--missed"]
    build, *targets = arguments[1:] if missed else arguments
    all_floors, below = floors(), 0
    if not missed:
        print(f"{'target':<14}{'source file':<36}{'lines':>6}{'reached':>9}{'floor':>7}")
    for target in targets:
        reached_lines = lines_of(build, target)
        wanted = all_floors.get(target, {})
        for path, floor in wanted.items():
            lines = reached_lines.get(path, {})
            reached = sum(lines.values())
            share = 100 * reached / max(len(lines), 1)
            if missed:
                print("\n".join(f"{target}: {path}:{number}" for number, hit in sorted(lines.items()) if not hit))
                continue
            is_below = share < floor
            below += is_below
            print(f"{target:<14}{path:<36}{len(lines):>6}{share:>8.1f}%{floor:>6}%{'  BELOW' if is_below else ''}")
    if below:
        sys.exit(f"{below} of the files above are reached less than their floor in fuzz/floors says; "
                 "fuzz/coverage.py --missed tells the lines")


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    main(sys.argv[1:])
