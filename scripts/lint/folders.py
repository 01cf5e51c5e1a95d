"""Who may include whom, and headers that nobody includes."""
import functools
import posixpath

EVERYTHING = [""]
NOT_PROOF = ["!tests/", "!fuzz/", "!bench/"]  # "!" takes away from what the others give
# Folder -> what its files may include of ours (beginnings of paths). A longer folder name wins over a shorter one.
MAY_INCLUDE = {
    "interface": ["interface/"],
    "include": ["public/string/"],
    "common": ["common/", "include/", "public/string/", "public/log/LogLevel.h"],
    "public": ["public/"],
    "src": ["src/", "interface/", "include/", "common/", "public/"],
    # Units that are usable without the class: of src/ itself they know the counters alone.
    "src/snapshot": ["src/snapshot/", "src/board/", "src/Counters.h", "interface/", "include/", "common/", "public/"],
    "src/board": ["src/snapshot/", "src/board/", "src/Counters.h", "interface/", "include/", "common/", "public/"],
    "exchange": ["exchange/", "common/", "interface/"],
    "software_board": ["software_board/", "exchange/", "common/", "interface/", "public/reg/", "public/clock/",
                       "public/file/"],
    "simulation": ["simulation/", "software_board/", "exchange/", "src/", "interface/", "include/", "common/",
                   "public/", "testing/"],
    "simulation/base": ["simulation/base/", "exchange/", "common/", "public/", "testing/"],
    "simulation/rules": ["simulation/base/", "simulation/rules/", "exchange/", "src/", "interface/", "common/",
                         "public/"],
    "simulation/world": ["simulation/base/", "simulation/rules/", "simulation/world/", "software_board/", "exchange/",
                         "src/", "interface/", "common/", "public/", "testing/"],
    "tools": ["tools/", "simulation/", "software_board/", "exchange/", "interface/", "include/", "common/", "public/",
              "testing/"],
    "examples": ["examples/", "interface/", "public/reg/BoardProvider.h"],
    "testing": EVERYTHING + NOT_PROOF,
    "tests": EVERYTHING,
    "fuzz": EVERYTHING,
    "bench": EVERYTHING,
    "scripts": EVERYTHING,
}
INCLUDE_FOLDERS = ["", "interface/", "include/"]     # the compiler's -I
INSTALLED = {"vexa/BoardProvider.h": "public/reg/BoardProvider.h"}  # under another name than in the tree
DOCUMENT = "docs/architecture.md"
# Header that no file includes -> why it is there all the same.
INCLUDED_BY_NOBODY = {}


@functools.cache
def folder_of(path):
    """The row of the table that holds for a file; None where there is none."""
    return max((folder for folder in MAY_INCLUDE if path.startswith(folder + "/")), key=len, default=None)


def may_include(folder, path):
    row = MAY_INCLUDE[folder]
    if any(path.startswith(entry[1:]) for entry in row if entry.startswith("!")):
        return False
    return any(path.startswith(entry) for entry in row if not entry.startswith("!"))


def resolve(tree, path, name, is_quoted):
    """The file of ours that an include means, whether it is there or not; None for the system's."""
    beside = [posixpath.dirname(path) + "/"] if is_quoted else []
    for folder in beside + INCLUDE_FOLDERS:
        whole = posixpath.normpath(folder + name)
        if whole in tree.texts:
            return whole
    if name in INSTALLED:
        return INSTALLED[name]
    if name.startswith("."):
        return posixpath.normpath(posixpath.dirname(path) + "/" + name)
    return posixpath.normpath(name) if is_quoted or name.split("/")[0] in MAY_INCLUDE else None


def check_folders(tree):
    """Each folder with sources has a row, here and in the document."""
    document = tree.documents.get(DOCUMENT, "")
    for path in tree.sources:
        if folder_of(path) is None:
            name = posixpath.dirname(path) or "the root"
            yield path, 1, f"{name} is not in the folder table of scripts/lint/folders.py; give it a row"
        elif f"`{path.split('/')[0]}/" not in document:
            yield path, 1, f"{path.split('/')[0]}/ is not in the folder table of {DOCUMENT}; give it a row"


def check_includes(tree):
    for path, source in tree.sources.items():
        folder = folder_of(path)
        for line, name, is_quoted in source.includes if folder is not None else ():
            target = resolve(tree, path, name, is_quoted)
            if target is not None and not may_include(folder, target):
                yield path, line, (f"{folder}/ may not include {target}; move what it needs to where both may, "
                                   "or hand it in")


def check_headers(tree):
    included = {resolve(tree, path, name, is_quoted) for path, source in tree.sources.items()
                for _, name, is_quoted in source.includes}
    for path in tree.sources:
        if path.endswith(".h") and path not in included and path not in INCLUDED_BY_NOBODY:
            yield path, 1, "no file includes this header; remove it"
    for path in INCLUDED_BY_NOBODY if tree.is_whole else ():
        if path in included or path not in tree.sources:
            yield "scripts/lint/folders.py", 1, f"INCLUDED_BY_NOBODY need not name {path} any more; take it out"
