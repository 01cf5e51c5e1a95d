#!/usr/bin/env python3
"""Checks what the compiler does not: who may include whom, words that stay out, and the length of files."""
import re
import subprocess
import sys

# Folder -> what its files may include of ours (prefixes). A longer folder name wins over a shorter one.
MAY_INCLUDE = {
    "interface": ["interface/", "VexaShfeMdStruct.h"],
    "include": ["public/string/"],
    "common": ["common/", "include/", "public/string/", "public/log/LogLevel.h"],
    "public": ["public/"],
    "src": ["src/", "interface/", "include/", "common/", "public/"],
    "exchange": ["exchange/", "common/", "interface/"],
    "software_board": ["software_board/", "exchange/", "common/", "interface/", "public/reg/", "public/clock/",
                       "public/file/"],
    "simulation": ["simulation/", "software_board/", "exchange/", "src/", "interface/", "include/", "common/", "public/"],
    "simulation/base": ["simulation/base/", "exchange/", "common/", "public/"],
    "simulation/rules": ["simulation/base/", "simulation/rules/", "exchange/", "src/", "interface/", "common/", "public/"],
    "simulation/world": ["simulation/base/", "simulation/rules/", "simulation/world/", "software_board/", "exchange/",
                         "src/", "interface/", "common/", "public/"],
    "examples": ["Arguments.h", "VexaShfeMdApi.h", "VexaShfeMdStruct.h"],
}
BANNED = [
    (r"\b(TODO|FIXME|XXX)\b", ".", "finish it, or say in an issue what is missing"),
    (r"\b(system_clock|steady_clock|high_resolution_clock|sleep_for|usleep|gettimeofday)\b",
     r"^(?!public/clock/|bench/).*", "use public/clock"),
    (r"\brandom_device\b", ".", "take a seed"),
    (r"\b(strcpy|strcat|sprintf|gets)\b\s*\(", ".", "use a bounded call"),
    (r"\bm_drvRegEnyx\.\w+Register\(\s*0x", r"^src/", "name the register in common/RegisterMap.h"),
]
FILE_LINES_MAX = 900
LINE_LENGTH_MAX = 120


def tracked(*patterns):
    out = subprocess.run(["git", "ls-files", "--", *patterns], capture_output=True, text=True, check=True)
    return out.stdout.split()


def check_includes(path, number, line):
    found = re.match(r'\s*#include "([^"]+)"', line)
    folder = max((folder for folder in MAY_INCLUDE if path.startswith(folder + "/")), key=len, default=None)
    if found and folder is not None and not any(found[1].startswith(prefix) for prefix in MAY_INCLUDE[folder]):
        yield f"{path}:{number}: {folder}/ may not include {found[1]}"


def check_words(path, number, line):
    for pattern, where, remedy in BANNED:
        if re.match(where, path) and re.search(pattern, line):
            yield f"{path}:{number}: {re.search(pattern, line)[0]}: {remedy}"
    if len(line) > LINE_LENGTH_MAX:
        yield f"{path}:{number}: {len(line)} characters, at most {LINE_LENGTH_MAX}"


def check_file(path):
    lines = open(path, encoding="utf-8").read().splitlines()
    if len(lines) > FILE_LINES_MAX:
        yield f"{path}: {len(lines)} lines; split it by reason to change"
    for number, line in enumerate(lines, 1):
        yield from check_includes(path, number, line)
        yield from check_words(path, number, line)


def main():
    if len(sys.argv) > 1:
        print(f"scripts/lint.py: takes no options, not '{sys.argv[1]}'; run it without", file=sys.stderr)
        return 2
    faults = [fault for path in tracked("*.cpp", "*.h") for fault in check_file(path)]
    print("\n".join(faults), end="\n" if faults else "")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
