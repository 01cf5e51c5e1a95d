"""Public headers are the manual: each public function has a comment that Doxygen reads.

It stands above the function or behind it, or above the first of a group: functions that follow one another without an
empty line."""
import re

MANUAL = re.compile(r"interface/[^/]+\.h|public/[^/]+/[^/]+\.h")


def needs_no_comment(function):
    is_macro = function.head.startswith(function.name)
    return is_macro or function.is_of_its_class() or function.is_operator() or function.is_removed_or_default()


def undocumented(source):
    documented_until = set()  # last lines of what has a comment, or stands in a group that has one
    for function in source.scan.functions:
        first, last = source.line_of(function.begin), source.line_of(function.end)
        above = source.lines[first - 2].strip() if first > 1 else ""
        declared = source.lines[first - 1:source.line_of(function.body if function.body >= 0 else function.end)]
        has_comment = above.startswith("///") or any("///" in line for line in declared)
        if has_comment or first - 1 in documented_until or first in documented_until:
            documented_until.add(last)
        elif function.is_public() and not needs_no_comment(function):
            yield first, function.name


def check_comments(tree):
    for path, source in tree.sources.items():
        if MANUAL.fullmatch(path):
            for line, name in undocumented(source):
                yield path, line, (f"{name} is public and has no comment; say in `///` above it or its group what it "
                                   "does, takes and returns")
