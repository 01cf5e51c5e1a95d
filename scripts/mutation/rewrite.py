"""Writes a source in which every mutant is there, switched off: `(Mutant(7) ? (a <= b) : (a < b))`.

Lines keep their numbers, so that what the library logs of itself stays the same.
"""
from itertools import groupby

from places import EXPRESSION, without_comments


def on_one_line(text):
    return " ".join(without_comments(text).split("\n"))


def rewritten(source):
    places = []  # (start, end, shape, mutants), outer ones first
    in_order = sorted(source.mutants, key=lambda m: (m.start, -m.end, m.shape == EXPRESSION))
    for (start, end, shape), mutants in groupby(in_order, key=lambda m: (m.start, m.end, m.shape)):
        places.append((start, end, shape, list(mutants)))
    edits = [(start, end, "constant", None) for start, end in source.tables]
    edits += [(start, end, "computed", None) for start, end in source.computed]
    places = sorted(places + edits, key=lambda p: (p[0], -p[1], p[2] == EXPRESSION))
    for mutant in source.mutants:
        mutant.test = "InitialMutant" if source.is_initial(mutant) else "Mutant"
    text, rest = emit(source, places, 0, 0, len(source.text))
    assert rest == len(places), f"{source.path}: places cross each other at {places[rest][:2]}"
    return text


def emit(source, places, at, start, end):
    """The text from `start` to `end` with the places from the `at`-th on that lie inside; and the first place beyond."""
    out, position = [], start
    while at < len(places) and places[at][1] <= end and places[at][0] >= position:
        first, last, shape, mutants = places[at]
        out.append(source.slice(position, first))
        inner, at = emit(source, places, at + 1, first, last)
        out.append(switched(shape, mutants, inner))
        position = last
    out.append(source.slice(position, end))
    return "".join(out), at


def switched(shape, mutants, inner):
    if shape == "constant":
        return "static const"
    if shape == "computed":
        return f"(InitialMutant(0), {inner})"
    if shape == EXPRESSION:
        choice = "".join(f"{m.test}({m.number}) ? ({on_one_line(m.mutated)}) : " for m in mutants)
        return f"({choice}({inner}))"
    choice = "".join(f"if ({m.test}({m.number})) {{ {on_one_line(m.mutated)}{';' if m.mutated else ''} }} else " for m in mutants)
    return f"{{ {choice}{{ {inner} }} }}"
