"""Breaks the library in small ways, one at a time, and tells which of them no test notices.

Every mutant is compiled into the test programs, switched off; a run switches one on and lets the tests run that reach
it, those first that reach little else. Survivors are printed as diffs. Those that change nothing which can be seen stand in
tests/equivalent_mutants.txt, each with its reason.
"""
import argparse
import os
import random
import re
import sys
import time

from trial import KILLED, SURVIVED, UNREACHED, Range
from workshop import PLACE, Workshop

EQUIVALENT = "tests/equivalent_mutants.txt"
LISTED = "listed"


class Parser(argparse.ArgumentParser):
    def error(self, message):
        wrong(message)


def options():
    parser = Parser(prog="./dev mutate", description=__doc__.splitlines()[0], allow_abbrev=False)
    parser.add_argument("--file", action="append", metavar="F", help="only mutants of this source (again for more)")
    parser.add_argument("--sample", type=positive, metavar="N", help="only N of them, drawn by the seed (default: all)")
    parser.add_argument("--seed", type=int, default=None, metavar="S", help="of the draw (default: the time; it is printed)")
    parser.add_argument("--jobs", type=positive, default=os.cpu_count(), metavar="J", help="at the same time (default: %(default)s)")
    parser.add_argument("--list", action="store_true", help="print the mutants' names and run nothing")
    return parser.parse_args()


def positive(text):
    if not re.fullmatch(r"[1-9][0-9]*", text):
        raise argparse.ArgumentTypeError(f"needs a whole number above 0, not '{text}'")
    return int(text)


def wrong(text):
    print(f"dev: {text}; see ./dev mutate --help", file=sys.stderr)
    sys.exit(2)


def listed_mutants():
    """Name -> reason, which stands indented below the names that it is for."""
    reasons, waiting, is_reason = {}, [], True
    for row in open(EQUIVALENT, encoding="utf-8"):
        if row.startswith("#") or not row.strip():
            continue
        if row[0] == " ":
            for name in waiting:
                reasons[name] = f"{reasons[name]} {row.strip()}".strip()
            is_reason = True
            continue
        if is_reason:
            waiting, is_reason = [], False
        waiting.append(row.strip())
        reasons[row.strip()] = ""
    nameless = [name for name, reason in reasons.items() if not reason]
    if nameless:
        sys.exit(f"{EQUIVALENT}: no reason stands below: {nameless[0]}")
    return reasons


def test_programs():
    """Those that run beside each other: no board in shared memory, no other program, no simulation, which is long."""
    text = open("tests/CMakeLists.txt", encoding="utf-8").read()
    rows = re.findall(r"^\s*vexa_add(?:_small)?_test\((\w+)([^)]*)\)", text, flags=re.M)
    return [name for name, rest in rows if " LOCK " not in rest and "process/" not in rest and name != "simulation_test"]


def diff(source, mutant):
    first = source.text.rfind(b"\n", 0, mutant.start) + 1
    last = source.text.find(b"\n", mutant.end)
    before = source.slice(first, last)
    after = source.slice(first, mutant.start) + mutant.mutated + source.slice(mutant.end, last)
    line = source.text.count(b"\n", 0, mutant.start) + 1
    rows = [f"--- {mutant.path}:{line}"] + [f"- {row}" for row in before.splitlines()]
    return "\n".join(rows + [f"+ {row}" for row in after.splitlines()] + [f"  {mutant.key}"])


def chosen(sources, wish):
    if wish.file:
        unknown = [name for name in wish.file if name not in sources]
        if unknown:
            wrong(f"--file: {unknown[0]} is no source of src/, public/ or the tables of common/")
    mutants = [m for path, source in sources.items() if not wish.file or path in wish.file for m in source.mutants]
    if wish.sample and wish.sample < len(mutants):
        mutants = sorted(random.Random(wish.seed).sample(mutants, wish.sample), key=lambda m: m.number)
    return mutants


def table(verdicts):
    rows = {}
    for mutant, verdict in verdicts:
        rows.setdefault(mutant.path, []).append(verdict)
    print(f"{'file':40} {'mutants':>7} {'killed':>7} {'listed':>7} {'alive':>6}  share killed")
    for path, found in [*sorted(rows.items()), ("together", [verdict for _, verdict in verdicts])]:
        killed, listed = found.count(KILLED), found.count(LISTED)
        print(f"{path:40} {len(found):7} {killed:7} {listed:7} {len(found) - killed - listed:6}  "
              f"{100 * killed / len(found):.1f} %")


def main():
    wish = options()
    wish.seed = int(time.time()) if wish.seed is None else wish.seed
    workshop = Workshop(os.getcwd())
    sources = workshop.find_mutants()
    mutants = chosen(sources, wish)
    if wish.list:
        print("\n".join(mutant.key for mutant in mutants))
        return 0
    listed = listed_mutants()
    known = {mutant.key for source in sources.values() for mutant in source.mutants}
    stale = [name for name in listed if name not in known]
    programs = test_programs()
    print(f"dev: building {len(programs)} test programs with {len(known)} mutants", file=sys.stderr)
    workshop.build_tests(programs)
    workshop.compile(sources)
    mutants = [mutant for mutant in mutants if mutant in sources[mutant.path].mutants]
    workshop.link(programs)
    place = Range(os.path.abspath(PLACE), programs)
    print("dev: running every test once without a mutant", file=sys.stderr)
    failures = place.survey(wish.jobs)
    if failures:
        sys.exit("\n".join(failures))
    if wish.sample:
        print(f"{len(mutants)} mutants, seed {wish.seed}")
    verdicts = [(mutant, LISTED) for mutant in mutants if mutant.key in listed]
    survivors = []
    for mutant, verdict in place.judge_all([m for m in mutants if m.key not in listed], wish.jobs):
        verdicts.append((mutant, verdict))
        if verdict in (SURVIVED, UNREACHED):
            survivors.append(mutant)
            print(f"{diff(sources[mutant.path], mutant)}\n  {verdict}\n", flush=True)
    table(verdicts)
    for name in stale:
        print(f"{EQUIVALENT}: no such mutant, take the row out: {name}")
    return 1 if survivors or stale else 0


if __name__ == "__main__":
    sys.exit(main())
