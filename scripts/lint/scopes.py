"""Reads the namespaces, classes, declarations and function bodies of a C++ file, by its brackets alone."""
import re
from dataclasses import dataclass, field

LABEL = re.compile(r"\s*(public|protected|private)\s*:(?!:)")
BRACKETS = {"(": re.compile(r"[()]"), "{": re.compile(r"[{}]")}
ATTRIBUTE = re.compile(r'\[\[.*?\]\]|\bextern\s*"[^"]*"(?=\s*\S)', re.S)
EMPTY_ATTRIBUTE = re.compile(r"__attribute__\s*\(\)|\balignas\s*\(\)")
TEMPLATE = re.compile(r"\s*template\s*<")
MEMBERS = re.compile(r"\)\s*(?:noexcept\s*(?:\(\))?\s*)?:(?!:)")
SYMBOL_OPERATOR = re.compile(r"operator\s*[^\s\w(]+")
ASSIGNMENT = re.compile(r"(?<![=!<>+\-*/%&|^])=(?!=)")
NO_FUNCTION = re.compile(r"(using|typedef|friend|static_assert|return)\b")
MARK = re.compile(r"[{}();]")
NO_NAME = {"decltype", "explicit", "noexcept", "requires", "void", "int", "bool", "char", "auto", "static_assert",
           "if", "for", "while", "switch", "return", "catch"}
QUALIFIED = r"(?:[A-Za-z_]\w*(?:<[^<>()]*>)?::)*"
NAME = re.compile(rf"({QUALIFIED})(operator\s*\(\)|operator\s*[^\s(]+|operator\s+[\w:<>*& ]+|~?[A-Za-z_]\w*)\s*\(\)")
CLASS_HEAD = re.compile(r"^(?:(?:typedef|static|inline|const|constexpr)\s+)*(class|struct|union)\b([^()=]*)$")
ENUM_HEAD = re.compile(r"^(?:(?:typedef|static|inline|const|constexpr)\s+)*enum\b[^()=]*$")
LAMBDA_END = re.compile(r"\]\s*(?:\([^{};]*\)\s*)?(?:mutable\s*|noexcept\s*|->[^{};]*)*$")


@dataclass
class Scope:
    kind: str  # "namespace", "class", "struct", "union"
    name: str
    access: str


@dataclass
class Function:
    """A declaration, or a definition with its body; offsets into the file."""
    name: str
    qualifier: str
    head: str
    begin: int
    name_at: int
    end: int
    body: int  # where its body begins; -1 for a declaration
    scopes: list = field(default_factory=list)

    def is_public(self):
        return all(scope.access == "public" for scope in self.scopes)

    def is_of_its_class(self):
        """Constructor or destructor."""
        owner = self.qualifier.split("::")[-2].split("<")[0] if self.qualifier else ""
        owner = owner or next((scope.name for scope in reversed(self.scopes) if scope.kind != "namespace"), "")
        return self.name.startswith("~") or self.name == owner

    def is_operator(self):
        return re.match(r"operator\b", self.name) is not None

    def is_removed_or_default(self):
        return re.search(r"=\s*(delete|default)\s*$", self.head) is not None


def partners(code):
    """Offset of each opening brace -> that of the closing one; None where they do not fit."""
    pairs, waiting = {}, []
    for found in re.finditer(r"[{}]", code):
        if found[0] == "{":
            waiting.append(found.start())
        elif not waiting:
            return None
        else:
            pairs[waiting.pop()] = found.start()
    return None if waiting else pairs


def without(text, opening, closing):
    """What stands between brackets of a kind taken out, the outermost brackets kept."""
    kept, depth, begin = [], 0, 0
    for found in BRACKETS[opening].finditer(text):
        if found[0] == opening:
            if depth == 0:
                kept.append(text[begin:found.end()])
            depth += 1
        elif depth > 0:
            depth -= 1
            begin = found.start()
    return "".join(kept) + text[begin:] if depth == 0 else "".join(kept)


def plain(head):
    """The head of a declaration without attributes and templates, brackets emptied."""
    head = ATTRIBUTE.sub(" ", head)
    head = without(without(head, "{", "}"), "(", ")")
    head = EMPTY_ATTRIBUTE.sub(" ", head)
    while (found := TEMPLATE.match(head)) is not None:
        depth, at = 1, found.end()
        while depth > 0 and at < len(head):
            depth += {"<": 1, ">": -1}.get(head[at], 0)
            at += 1
        head = head[at:]
    return " ".join(head.split())


def named(head):
    """(qualifier, name) of a function's plain head; None where it declares none."""
    if "(" not in ASSIGNMENT.split(SYMBOL_OPERATOR.sub("operator@", head), maxsplit=1)[0]:
        return None
    for found in NAME.finditer(head):
        if head[found.end():].lstrip().startswith("("):
            return None  # a pointer to a function
        if found[2] not in NO_NAME:
            return found[1], found[2]
    return None


class Scan:
    def __init__(self, code):
        self.code = code
        self.functions = []  # in their order, declarations too
        self.lambdas = []    # (begin, end) of bodies outside every function
        self.pairs = partners(code)
        self.scopes = []
        if self.pairs is not None:
            self._read()

    def _read(self):
        begin = at = depth = 0
        while (found := MARK.search(self.code, at)) is not None:
            mark, here, at = found[0], found.start(), found.end()
            if mark in "()":
                depth += 1 if mark == "(" else -1
            elif mark == ";" and depth <= 0:
                self._take(begin, here, -1, here)
                begin, depth = at, 0
            elif mark == "{":
                is_closed, at = self._open(begin, here, depth)
                begin = at if is_closed else begin
            elif mark == "}":
                if self.scopes:
                    self.scopes.pop()
                begin = at

    def _open(self, begin, here, depth):
        """(whether a new head begins, where reading goes on)"""
        begin = self._behind_labels(begin, here)
        kind, name = self._kind_of(plain(self.code[begin:here])) if depth <= 0 else ("value", "")
        if kind in ("namespace", "struct", "union", "class"):
            self.scopes.append(Scope(kind, name, "private" if kind == "class" else "public"))
            return True, here + 1
        end = self.pairs[here]
        if kind == "function":
            self._take(begin, here, here, end)
        elif LAMBDA_END.search(self.code, begin, here):
            self.lambdas.append((here, end))
        return kind == "function", end + 1

    def _behind_labels(self, begin, end):
        while (label := LABEL.match(self.code, begin, end)) is not None:
            if self.scopes:
                self.scopes[-1].access = label[1]
            begin = label.end()
        return begin

    @staticmethod
    def _kind_of(head):
        if re.search(r'\bnamespace\b|^extern "\s*"$', head) and "(" not in head:
            return "namespace", ""
        if (found := CLASS_HEAD.match(head)) is not None:
            words = re.findall(r"[A-Za-z_]\w*", re.split(r"(?<!:):(?!:)", found[2])[0])
            return found[1], next((word for word in words if word != "final"), "")
        if ENUM_HEAD.match(head) or named(head) is None:
            return "value", ""
        has_members = MEMBERS.search(head) is not None
        return ("value" if has_members and re.search(r"[\w>]$", head) else "function"), ""

    def _take(self, begin, head_end, body, end):
        begin = self._behind_labels(begin, head_end)
        head = self.code[begin:head_end]
        begin += len(head) - len(head.lstrip())
        short = plain(head)
        name = named(short)
        if name is None or NO_FUNCTION.match(short):
            return
        name_at = self._place_of(name[1], begin, head_end)
        scopes = [Scope(scope.kind, scope.name, scope.access) for scope in self.scopes]
        self.functions.append(Function(name[1], name[0], short, begin, name_at, end, body, scopes))

    def _place_of(self, name, begin, end):
        """Where the name stands with its parameters behind it."""
        at = self.code.find(name, begin, end)
        while at >= 0:
            is_whole = at == 0 or not (self.code[at - 1].isalnum() or self.code[at - 1] in "_~")
            if is_whole and self.code[at + len(name):end].lstrip()[:1] == "(":
                return at
            at = self.code.find(name, at + 1, end)
        return begin
