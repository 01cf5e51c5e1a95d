"""What the documents say of the tree: links, commands, files and programs."""
import posixpath
import re
from dataclasses import dataclass

PROSE_MAX = 160  # a row of a table cannot be broken, and is not measured
FENCE = re.compile(r"^```(\w*)[^\n]*\n(.*?)^```$", re.M | re.S)
PROGRAM_LANGUAGES = {"c", "cpp", "c++", "cc", "h", "hpp"}
# The line in front of a program says where it is from. A shortened one has the file's tokens in their order, and lines
# of its own only where it names them.
ORIGIN = re.compile(r"<!-- (quotes|shortens) ([\w./-]+)(?:, with (.*))? -->\n$")
TOKEN = re.compile(r'"(?:[^"\\]|\\.)*"|\w+|[^\w\s]')
HISTORY = "CHANGELOG.md"  # its links and commands hold; files that it names may have gone
KEYS = "docs/configuration.md"
HELP = re.compile(r"^usage\(\) \{\n\s*cat <<'END'\n(.*?)^END$", re.M | re.S)


@dataclass
class Block:
    language: str
    text: str
    line: int    # of its first line
    before: str  # what stands in front of its fence


def line_of(text, offset):
    return text.count("\n", 0, offset) + 1


def blocks(text):
    for found in FENCE.finditer(text):
        yield Block(found[1].lower(), found[2], line_of(text, found.start(2)), text[:found.start()])


def without_blocks(text):
    return FENCE.sub(lambda found: re.sub(r"[^\n]", " ", found[0]), text)


def check_lines(tree):
    for path, text in tree.documents.items():
        for number, line in enumerate(text.splitlines(), 1):
            if len(line) > PROSE_MAX and not line.startswith("|"):
                yield path, number, f"{len(line)} characters, at most {PROSE_MAX}; break the line"


def anchors(text):
    """What can stand behind a "#": headings in lower case, blanks as dashes; the second of a name gets "-1"."""
    found = set()
    for heading in re.findall(r"^#+ +(.+?) *$", without_blocks(text), re.M):
        anchor = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        again = 0
        while (name := f"{anchor}-{again}" if again else anchor) in found:
            again += 1
        found.add(name)
    return found


def check_links(tree):
    for path, text in tree.documents.items():
        for found in re.finditer(r"\]\(\s*<?([^)\s>]+)>?[^)]*\)|^\[[^\]]+\]:\s*(\S+)", without_blocks(text), re.M):
            target = found[1] or found[2]
            if re.match(r"[a-z][a-z0-9+.-]*:", target):
                continue
            name, _, anchor = target.partition("#")
            whole = posixpath.normpath(posixpath.join(posixpath.dirname(path), name)) if name else path
            line = line_of(text, found.start())
            if not tree.has(whole):
                yield path, line, f"{target}: there is no such file; mend the link"
            elif anchor and anchor not in anchors(tree.documents.get(whole, "")):
                yield path, line, f"{target}: no heading gives #{anchor}; mend the link"


def check_paths(tree):
    """Files named in backticks, from the root on."""
    tops = {path.split("/")[0] for path in tree.texts if "/" in path}
    for path, text in tree.documents.items():
        if path == HISTORY:
            continue
        for found in re.finditer(r"`([\w.-]+/[\w./-]*\w\.\w+)`", text):
            if found[1].split("/")[0] in tops - {"build"} and not tree.has(found[1]):
                yield path, line_of(text, found.start()), f"{found[1]}: there is no such file; name the one that is"


def commands(tree):
    """What the help of ./dev lists; None where there is no ./dev."""
    found = HELP.search(tree.texts.get("dev", ""))
    return set(re.findall(r"^  ([a-z]+)\b", found[1], re.M)) if found else None


def check_commands(tree):
    known = commands(tree)
    if known is None:
        return
    for path, text in tree.documents.items():
        for found in re.finditer(r"\./dev +([a-z]+)\b", text):
            if found[1] not in known:
                yield path, line_of(text, found.start()), f"./dev {found[1]}: ./dev --help knows no such command"
        for found in re.finditer(r"`(scripts/[\w./-]+)[^`]*`", text):
            if path != HISTORY and not tree.has(found[1]):
                yield path, line_of(text, found.start()), f"{found[1]}: there is no such script; name the one that is"


def is_shortened(block, whole, own):
    """Whether all the tokens stand in the file in this order, those of the lines of its own aside."""
    lines = [line for line in block.splitlines() if line.strip() not in own]
    rest = iter(TOKEN.findall(whole))
    return all(token in rest for token in TOKEN.findall("\n".join(lines)))


def fault_of(tree, block):
    origin = ORIGIN.search(block.before)
    if origin is None:
        return "says not where it is from; put <!-- quotes FILE --> or <!-- shortens FILE, with LINE --> in front of it"
    how, name, own = origin[1], origin[2], (origin[3] or "").split("; also ")
    if name not in tree.texts:
        return f"is from {name}, which is not there; name the file that it is from"
    if how == "quotes" and block.text != tree.texts[name]:
        return f"is not the text of {name}; quote it whole, or write `shortens`"
    if how == "shortens" and not is_shortened(block.text, tree.texts[name], own):
        return f"has what {name} has not, or in another order; mend it, or name its own lines behind `with`"
    return None


def check_programs(tree):
    for path, text in tree.documents.items():
        for block in blocks(text):
            fault = fault_of(tree, block) if block.language in PROGRAM_LANGUAGES else None
            if fault is not None:
                yield path, block.line, f"the program {fault}"


def known_keys(text):
    """Keys of the reference. In a row that begins with `a_b_c`, `_d` stands for a_b_d and `d_…` for d_b_c."""
    keys = set()
    for row in re.findall(r"^\| (`.*?) \|", text, re.M):
        names = re.findall(r"`([^`]+)`", row)
        for name in names:
            if name.startswith("_"):
                name = names[0].rpartition("_")[0] + name
            keys.add(name.replace("_…", "_" + names[0].partition("_")[2]))
    return keys


def check_settings(tree):
    """Keys of INI texts stand in the reference."""
    keys = known_keys(tree.documents.get(KEYS, ""))
    texts = [(path, block.text, block.line) for path, text in tree.documents.items()
             for block in blocks(text) if block.language == "ini"]
    texts += [(path, text, 1) for path, text in tree.texts.items() if re.fullmatch(r"examples/.*\.ini", path)]
    for path, text, first in texts:
        for found in re.finditer(r"^([A-Za-z]\w*)\s*=", text, re.M):
            if found[1] not in keys:
                line = first + line_of(text, found.start()) - 1
                yield path, line, f"{found[1]}: {KEYS} has no such key; add a row or mend it"
