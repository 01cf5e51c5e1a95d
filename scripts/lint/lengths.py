"""Lines, functions and files stay as long as one can read."""
LINE_MAX = 120
FUNCTION_MAX = 70
FILE_MAX = 500
# Longer than that, and by how much: these lists only shrink.
LONG_FILES = {"tests/unit/software_board_test.cpp": 507}
LONG_FUNCTIONS = {}  # (file, function) -> lines


def too_long(lines, most, allowed, remedy):
    """The message, or None. A row of a list that is longer than it has to be is told as well."""
    if allowed is not None and lines < allowed:
        return f"{lines} lines, and its row in scripts/lint/lengths.py says {allowed}; bring it down, out at {most}"
    if lines > (allowed or most):
        return f"{lines} lines, at most {allowed or most}; {remedy}"
    return None


def check_lines(tree):
    for path, source in tree.sources.items():
        for number, line in enumerate(source.lines, 1):
            if len(line) > LINE_MAX:
                yield path, number, f"{len(line)} characters, at most {LINE_MAX}; ./dev format breaks what it can"


def check_files(tree):
    for path, source in tree.sources.items():
        text = too_long(len(source.lines), FILE_MAX, LONG_FILES.get(path), "split it by reason to change")
        if text is not None:
            yield path, 1, text
    for path in LONG_FILES if tree.is_whole else ():
        if path not in tree.sources:
            yield "scripts/lint/lengths.py", 1, f"LONG_FILES need not name {path} any more; take it out"


def bodies(source):
    """(name, first line, last line) of every function, and of every lambda that stands in none."""
    for function in source.scan.functions:
        if function.body >= 0:
            yield function.name, source.line_of(function.begin), source.line_of(function.end)
    for begin, end in source.scan.lambdas:
        yield "a lambda", source.line_of(begin), source.line_of(end)


def check_functions(tree):
    seen = set()
    for path, source in tree.sources.items():
        if source.scan.pairs is None:
            yield path, 1, "its braces do not match, so that nothing is known of its functions; write them in pairs"
            continue
        for name, first, last in bodies(source):
            seen.add((path, name))
            allowed = LONG_FUNCTIONS.get((path, name))
            remedy = "leave its branches here, move the work to helpers"
            text = too_long(last - first + 1, FUNCTION_MAX, allowed, remedy)
            if text is not None:
                yield path, first, f"{name}: {text}"
    for row in sorted(set(LONG_FUNCTIONS) - seen) if tree.is_whole else ():
        yield "scripts/lint/lengths.py", 1, f"LONG_FUNCTIONS need not name {row} any more; take it out"
