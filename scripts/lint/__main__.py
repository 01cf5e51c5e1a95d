"""Checks what the compiler does not: docs/tests.md tells the rules.

With --self-test, checks that the rules find what is planted."""
import sys
from pathlib import Path

import planted
from rules import RULES
from tree import repository

ROOT = Path(__file__).resolve().parent.parent.parent


def self_test():
    faults, count = planted.run(ROOT)
    for fault in faults:
        print(fault)
    print(f"lint: {count} planted cases, {len(faults) or 'no'} fault{'' if len(faults) == 1 else 's'}")
    return 1 if faults else 0


def main():
    words = sys.argv[1:]
    if words == ["--self-test"]:
        return self_test()
    if words:
        print(f"scripts/lint.py: takes --self-test or nothing, not '{words[0]}'; run it without", file=sys.stderr)
        return 2
    tree = repository(ROOT)
    found = sorted({finding for rule in RULES.values() for finding in rule(tree)})
    for path, line, message in found:
        print(f"{path}:{line}: {message}")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
