"""Holds the rules against the planted faults of scripts/lint_cases/.

A case is named RULE.WHAT.case. Its first line tells as what file its text is read and what its rule has to find there,
nothing else and nothing less: "// as PATH: LINE: MESSAGE" or "// as PATH: nothing", more findings behind " && ". A
message may be the part that matters. A document has the line as a comment of its own kind. "// and PATH" begins another
file of the case; "// 70 times: TEXT" is so many lines of TEXT.
"""
import re
from dataclasses import dataclass

from rules import RULES
from tree import Tree

FOLDER = "scripts/lint_cases"
OPENING = r"(?:// |<!-- |# )"
CLOSING = r"(?: -->)?\n"
FIRST = re.compile(rf"{OPENING}as (\S+): (.*?){CLOSING}")
NEXT = re.compile(rf"^{OPENING}and (\S+?){CLOSING}", re.M)
REPEATED = re.compile(r"^// (\d+) times: (.*\n)", re.M)


@dataclass
class Case:
    name: str
    rule: str
    path: str
    expected: list
    tree: Tree


def read(file):
    """The case of a file, or the text of what is wrong with it."""
    text = file.read_text(encoding="utf-8")
    first = FIRST.match(text)
    rule = file.name.split(".")[0]
    if first is None:
        return f"{FOLDER}/{file.name}:1: tells not what it is; begin it with: // as PATH: LINE: MESSAGE"
    if rule not in RULES:
        return f"{FOLDER}/{file.name}:1: there is no rule {rule}; known are {', '.join(RULES)}"
    text = "\n" + REPEATED.sub(lambda found: int(found[1]) * found[2], text[first.end():])
    parts = NEXT.split(text)
    texts = {first[1]: parts[0], **{parts[i]: parts[i + 1] for i in range(1, len(parts), 2)}}
    expected = [] if first[2] == "nothing" else first[2].split(" && ")
    return Case(file.name, rule, first[1], expected, Tree(texts))


def told(finding):
    path, line, message = finding
    return f"{path}:{line}: {message}"


def faults_of(case):
    found = [told(finding) for finding in RULES[case.rule](case.tree)]
    for wanted in case.expected:
        fits = next((text for text in found if f"{case.path}:{wanted}" in text), None)
        if fits is None:
            yield f"{FOLDER}/{case.name}: missed: {case.path}:{wanted}"
        else:
            found.remove(fits)
    for text in found:
        yield f"{FOLDER}/{case.name}: found without cause: {text}"


def run(root):
    """What is wrong with the rules, and how many cases there are."""
    read_cases = [read(file) for file in sorted((root / FOLDER).glob("*.case"))]
    faults = [case for case in read_cases if isinstance(case, str)]
    cases = [case for case in read_cases if isinstance(case, Case)]
    for case in cases:
        faults += faults_of(case)
    for rule in RULES:
        kinds = {bool(case.expected) for case in cases if case.rule == rule}
        if True not in kinds:
            faults.append(f"{FOLDER}: no case has a fault for the rule {rule}; plant one")
        if False not in kinds:
            faults.append(f"{FOLDER}: no case keeps the rule {rule}; add one that gives nothing")
    return faults, len(cases)
