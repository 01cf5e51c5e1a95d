"""Functions of the product that nobody calls."""
import bisect
import re

PRODUCT = ("src/", "public/", "common/", "interface/", "include/", "exchange/", "software_board/", "tools/",
           "simulation/", "testing/")
IDENTIFIER = re.compile(r"[A-Za-z_]\w*")
# Function that no text of the tree names again -> who calls it. A name that ends in "*" stands for all that begin so.
CALLED_FROM_OUTSIDE = {
    "main": "the system",
    "__wrap_*": "the linker puts it in front of the C library's (WatchedAllocator)",
    "vexa_board_provider": "looked up by name in the loaded provider",
}
# Operations of CVexaShfeMdApiImpl that only forward to a unit -> why the class keeps the name.
FORWARDS = {}


def is_called_unseen(function):
    """Special members, operators and what overrides are called without their name, or by another's."""
    return (function.is_of_its_class() or function.is_operator() or function.is_removed_or_default()
            or re.search(r"\boverride\b", function.head) is not None)


def definitions(tree):
    """name -> (path, line), of the first one"""
    found = {}
    for path, source in tree.sources.items():
        if path.startswith(PRODUCT):
            for function in source.scan.functions:
                if function.body >= 0 and not is_called_unseen(function):
                    found.setdefault(function.name, (path, source.line_of(function.name_at)))
    return found


def overriding(tree):
    """Names of overrides, whose bodies may stand elsewhere: they are called by the name of what they override."""
    return {function.name for source in tree.sources.values() for function in source.scan.functions
            if re.search(r"\boverride\b", function.head)}


def is_called_from_outside(name):
    return any(name == row or row.endswith("*") and name.startswith(row[:-1])
               for row in [*CALLED_FROM_OUTSIDE, *FORWARDS])


def names_used(source, wanted):
    """Those of `wanted` that stand in the file besides their declarations and their own bodies."""
    functions = source.scan.functions
    declared = {function.name_at for function in functions}
    with_body = [function for function in functions if function.body >= 0]
    begins = [function.body for function in with_body]
    used = set()
    for found in IDENTIFIER.finditer(source.code):
        if found[0] not in wanted or found[0] in used or found.start() in declared:
            continue
        at = bisect.bisect_right(begins, found.start()) - 1
        is_own = at >= 0 and found.start() < with_body[at].end and with_body[at].name == found[0]
        if not is_own:
            used.add(found[0])
    return used


def check_functions(tree):
    defined = definitions(tree)
    wanted = set(defined)
    used = set().union(*(names_used(source, wanted) for source in tree.sources.values()))
    for name in sorted(wanted - used - overriding(tree)):
        if not is_called_from_outside(name):
            path, line = defined[name]
            yield path, line, f"{name} is called nowhere; remove it, or give it a reason in scripts/lint/unused.py"
    for row in [*CALLED_FROM_OUTSIDE, *FORWARDS] if tree.is_whole else ():
        if not row.endswith("*") and row != "main" and (row in used or row not in wanted):
            yield "scripts/lint/unused.py", 1, f"{row} needs no row any more; take it out"
