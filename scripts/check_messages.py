#!/usr/bin/env python3
"""Every error and warning that the library can log, and every text it prints besides, has a row in docs/operations.md.

Collects the texts of the sources (public/, src/) and the texts in the first column of the document's tables headed
"what you see", and tells what stands in one of them alone. A conversion such as %d is "…" in a row, %% is %, and blanks
at either end do not count.

usage: check_messages.py [--list] [SOURCES [DOCUMENT]]"""
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FOLDERS = ["public", "src"]
TABLE_HEAD = "what you see"

# Texts that no literal beside the level gives: (file, what stands in the call) -> texts.
ASSEMBLED = {
    ("public/signal/SignalProcess.cpp", "line.Data()"): ["[%d]received signal %d"],
}
# Lines put together without a format: (file, a literal of it) -> the whole text.
PUT_TOGETHER = {
    ("public/log/CommonLog.cpp", '" more like this"'): "%u more like this",
    ("public/log/CommonLog.cpp", '"); the session goes on without it'):
        "vexa_shfe_md: the log file %s %s (%s); the session goes on without it",
}
# Helpers that put the rest around a text given to them: (file, pattern of the call's text) -> the whole text.
WRAPPED = {
    "src/ConfigChecksum.cpp": (r'\bfail\(-\d+, "([^"]+)"\)', "{}[%s] [%u]."),
}
WRAPPER_FORMATS = ["%s[%s] [%u].", "%s"]  # the formats by which such helpers log

LITERAL = r'"(?:[^"\\]|\\.)*"'
CONVERSION = r"%[-+ #0]*\d*(?:\.\d+)?(?:hh|h|ll|l|z|j)?[diuxXcsfgp]"


def without_comments(text):
    """Comments blanked, literals kept."""
    def keep_lines(found):
        return found[0] if found[0].startswith('"') else re.sub(r"[^\n]", " ", found[0])
    return re.sub(LITERAL + r"|//[^\n]*|/\*.*?\*/", keep_lines, text, flags=re.S)


def call_around(text, position):
    """From the opening parenthesis around `position` to the closing one; empty where there is none."""
    depth, begin = 0, position
    while depth <= 0:
        begin -= 1
        if begin < 0 or text[begin] in "{};":
            return ""
        depth += {"(": 1, ")": -1}.get(text[begin], 0)
    for found in re.finditer(LITERAL + r"|[()]", text[begin + 1:]):
        depth += {"(": 1, ")": -1}.get(found[0], 0)
        if depth == 0:
            return text[begin:begin + 1 + found.end()]
    return ""


def value(literals):
    literals = re.sub(r'%"\s*PRI\w+', '%u"', literals)
    joined = "".join(part[1:-1] for part in re.findall(LITERAL, literals))
    return re.sub(r'\\(["\\])', r"\1", joined).replace(r"\n", "")


def shown(text):
    """As a row of the document writes it."""
    return re.sub(f"%%|{CONVERSION}", lambda found: "%" if found[0] == "%%" else "…", text).strip()


def first_text(call):
    """The first run of literals in a call: its format."""
    found = re.search(rf'{LITERAL}(?:\s*PRI\w+|\s*{LITERAL})*', call)
    return None if found is None else value(found[0])


def logged(path, text, levels):
    """(line, text) of every call that is given one of these levels, by itself or in a choice."""
    for found in re.finditer(rf"(?<!case )(?<!== )\bLOG_(?:{levels})\b\s*(?=[,:;])", text):
        line = text.count("\n", 0, found.start()) + 1
        call = call_around(text, found.start())
        assembled = [texts for (file, word), texts in ASSEMBLED.items() if file == path and word in call]
        if assembled:
            yield from ((line, one) for one in assembled[0])
            continue
        behind = call[call.find(found[0]):]
        yield line, first_text(re.sub(r'__LINE__,\s*"\w+",', "", behind))  # the operation named by hand


def printed(text):
    """(line, text) of what goes to standard output or, past the log, to standard error."""
    for found in re.finditer(rf'\bstd::(?:printf\(\s*({LITERAL})|fputs\(\s*({LITERAL}),\s*std(?:out|err))', text):
        yield text.count("\n", 0, found.start()) + 1, value(found[1] or found[2])
    for found in re.finditer(rf'({LITERAL})', text):
        is_beginning = found[1].endswith(' "')  # of a line put together
        if found[1].startswith('"vexa_shfe_md: ') and not is_beginning:
            yield text.count("\n", 0, found.start()) + 1, value(found[1])


def put_together(path, text):
    for (file, literal), whole in PUT_TOGETHER.items():
        if file == path and literal in text:
            yield text.count("\n", 0, text.index(literal)) + 1, whole


def wrapped(path, text):
    pattern, frame = WRAPPED.get(path, (None, None))
    for found in re.finditer(pattern, text) if pattern else ():
        yield text.count("\n", 0, found.start()) + 1, frame.format(found[1])


def texts_of(root):
    """Text as shown -> the places that give it; the calls whose text could not be found; the texts of lower levels."""
    places, lost, others = {}, [], set()
    files = [file for folder in FOLDERS for file in (root / folder).rglob("*") if file.suffix in (".cpp", ".h")]
    for path in sorted(files):
        name = path.relative_to(root).as_posix()
        text = without_comments(path.read_text(encoding="utf-8"))
        for line, found in [*logged(name, text, "ERROR|WARNING"), *printed(text), *wrapped(name, text),
                            *put_together(name, text)]:
            if found is None:
                lost.append(f"{name}:{line}")
            elif found not in WRAPPER_FORMATS:
                places.setdefault(shown(found), []).append(f"{name}:{line}")
        others.update(shown(found) for _, found in logged(name, text, "INFO|DEBUG") if found)
    return places, lost, others


def rows_of(document):
    """text -> line number, from the first column of the tables headed TABLE_HEAD."""
    rows, is_table = {}, False
    for number, line in enumerate(document.read_text(encoding="utf-8").splitlines(), 1):
        if not line.startswith("|"):
            is_table = False
            continue
        first = re.match(r"\|((?:`[^`]*`|[^|])*)\|", line)
        cell = first[1] if first else ""
        if cell.strip() == TABLE_HEAD:
            is_table = True
        elif is_table:
            rows.update((text.strip(), number) for text in re.findall(r"`([^`]*)`", cell))
    return rows


def main():
    words = [word for word in sys.argv[1:] if word != "--list"]
    if len(words) > 2 or any(word.startswith("-") for word in words):
        print("scripts/check_messages.py: takes --list, a folder and a document; run it without", file=sys.stderr)
        return 2
    root = Path(words[0]) if words else ROOT
    document = Path(words[1]) if len(words) > 1 else root / "docs/operations.md"
    places, lost, others = texts_of(root)
    if "--list" in sys.argv:
        print("\n".join(f"{text}\t{' '.join(where)}" for text, where in sorted(places.items())))
        return 0
    rows = rows_of(document)
    without_row = {text: where for text, where in places.items() if text not in rows}
    without_text = {text: number for text, number in rows.items() if text not in places and text not in others}
    for text, where in without_row.items():
        print(f"{where[0]}: no row of {document.name} has this text. Add it to the table where it belongs:\n"
              f"| `{text}` | what it means | what to do |")
    for text, number in without_text.items():
        print(f"{document.name}:{number}: the sources no longer have this text; mend or remove the row: `{text}`")
    for where in lost:
        print(f"{where}: no text stands beside the level here; add it to ASSEMBLED or WRAPPED in {Path(__file__).name}")
    if not places:
        print(f"no message found below {root}; is it the project's folder?")
    return 1 if without_row or without_text or lost or not places else 0


if __name__ == "__main__":
    sys.exit(main())
