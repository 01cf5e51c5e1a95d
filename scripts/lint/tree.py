"""The files that are looked at, and what the checks read of them."""
import bisect
import functools
import re
import subprocess
from pathlib import Path

from scopes import Scan

LITERAL = (r'R"(?P<delimiter>[^(\s]*)\(.*?\)(?P=delimiter)"|"(?:[^"\\\n]|\\.)*"'
           r"|(?<![0-9A-Fa-f])'(?:[^'\\\n]|\\.)+'")
COMMENT = r"//(?:[^\n\\]|\\.)*|/\*.*?\*/"
COMMENT_OR_LITERAL = re.compile(f"(?P<comment>{COMMENT})|{LITERAL}", re.S)
INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:"([^"\n]+)"|<([^>\n]+)>)', re.M)
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n\\]|\\.)*", re.M | re.S)


def blanked(text):
    return re.sub(r"[^\n]", " ", text)


class Source:
    """One C++ or C file. `code` has its comments and the insides of its literals blanked, every offset kept."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.lines = text.splitlines()

    @functools.cached_property
    def line_ends(self):
        return [found.start() for found in re.finditer("\n", self.text)]

    def line_of(self, offset):
        return bisect.bisect_left(self.line_ends, offset) + 1

    @functools.cached_property
    def without_comments(self):
        return COMMENT_OR_LITERAL.sub(lambda found: blanked(found[0]) if found["comment"] else found[0], self.text)

    @functools.cached_property
    def code(self):
        def blank(found):
            whole = found[0]
            return blanked(whole) if found["comment"] else whole[0] + blanked(whole[1:-1]) + whole[-1]
        return COMMENT_OR_LITERAL.sub(blank, self.text)

    @functools.cached_property
    def scan(self):
        return Scan(DIRECTIVE.sub(lambda found: blanked(found[0]), self.code))

    @functools.cached_property
    def includes(self):
        """(line, text between the quotes or brackets, whether it is quoted)"""
        rows = []
        for found in INCLUDE.finditer(self.without_comments):
            rows.append((self.line_of(found.start(1 if found[1] else 2)), found[1] or found[2], found[1] is not None))
        return rows


class Tree:
    """Path -> text of every file, as the checks see it: the repository, or a planted case."""

    def __init__(self, texts, is_whole=False):
        self.is_whole = is_whole  # so that rows of lists that nothing needs any more are told
        self.texts = texts
        self.sources = {path: Source(path, text) for path, text in sorted(texts.items())
                        if path.endswith((".cpp", ".h", ".c"))}
        self.documents = {path: text for path, text in sorted(texts.items()) if path.endswith(".md")}
        self.folders = {str(parent) for path in texts for parent in Path(path).parents}

    def has(self, path):
        return path in self.texts or path.rstrip("/") in self.folders


def repository(root):
    """What is tracked or about to be; files of other kinds are known by name alone."""
    listed = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"], cwd=root,
                            capture_output=True, text=True, check=True).stdout.split("\n")
    texts = {}
    for path in filter(None, listed):
        if not (root / path).is_file():
            continue
        is_read = path.endswith((".cpp", ".h", ".c", ".md", ".ini", ".patch")) or path == "dev"
        texts[path] = (root / path).read_text(encoding="utf-8") if is_read else ""
    return Tree(texts, is_whole=True)
