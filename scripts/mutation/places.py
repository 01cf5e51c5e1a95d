"""Finds the places of a source file that can be made wrong, and how: from the compiler's own view of the code."""
import bisect
import re
from dataclasses import dataclass, field

from clang.cindex import CursorKind as Kind
from clang.cindex import Index, StorageClass, TranslationUnit, TypeKind

EXPRESSION, STATEMENT = "expression", "statement"

FLIPPED = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "/", "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "|",
    "&&": "||", "||": "&&",
    "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "%=": "/=", "|=": "&=", "&=": "|=", "^=": "|=", "<<=": ">>=", ">>=": "<<=",
}
DECIDES = {"<", "<=", ">", ">=", "==", "!=", "&&", "||"}  # a condition of these is flipped already
HINTS = {"reserve", "expect", "expectrest"}  # room taken or memory fetched beforehand: seen by nobody
COMMUTING = {"min", "max"}
NEXT_LEVEL = {"LOG_ERROR": "LOG_WARNING", "LOG_WARNING": "LOG_INFO", "LOG_INFO": "LOG_DEBUG", "LOG_DEBUG": "LOG_INFO"}

FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE,
             Kind.CONVERSION_FUNCTION}
BODIES = {Kind.COMPOUND_STMT, Kind.IF_STMT, Kind.FOR_STMT, Kind.WHILE_STMT, Kind.DO_STMT, Kind.CASE_STMT,
          Kind.DEFAULT_STMT, Kind.CXX_FOR_RANGE_STMT}
REMOVED = {Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR,
           Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR}
NAMES = {Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR, Kind.TYPE_REF, Kind.TEMPLATE_REF, Kind.NAMESPACE_REF,
         Kind.OVERLOADED_DECL_REF}
CLASSES = {Kind.CLASS_DECL, Kind.STRUCT_DECL, Kind.CLASS_TEMPLATE}
DECLARED = {Kind.VAR_DECL, Kind.FIELD_DECL, Kind.PARM_DECL}
NOT_EVALUATED = {Kind.STATIC_ASSERT, Kind.ENUM_DECL, Kind.CXX_UNARY_EXPR, Kind.TYPEDEF_DECL, Kind.TYPE_ALIAS_DECL}


@dataclass
class Mutant:
    path: str
    start: int  # bytes in the file
    end: int
    shape: str
    original: str
    mutated: str  # empty: removed
    function: str
    nth: int = 0
    number: int = 0
    test: str = ""  # the function that says whether it is on

    @property
    def key(self):
        """Names the mutant as long as the function is not rewritten, wherever its lines move."""
        twin = f" #{self.nth}" if self.nth > 1 else ""
        return f"{self.path}: {self.function}: `{squeezed(self.original)}` -> `{squeezed(self.mutated)}`{twin}"


@dataclass
class Source:
    path: str
    text: bytes
    macros: list = field(default_factory=list)   # (start, end) of what the preprocessor replaced
    tables: list = field(default_factory=list)   # (start, end) of `constexpr` in front of a table
    initial: list = field(default_factory=list)  # (start, end) of what the compiler would work out if it could
    computed: list = field(default_factory=list)  # (start, end) of an initialiser that calls a function
    functions: list = field(default_factory=list)  # (start, end, name)
    mutants: list = field(default_factory=list)

    def slice(self, start, end):
        return self.text[start:end].decode()

    def is_initial(self, mutant):
        return any(start <= mutant.start < end for start, end in self.initial)

    def in_macro(self, start, end):
        at = bisect.bisect_right(self.macros, (start, float("inf"))) - 1
        return at >= 0 and self.macros[at][0] <= start and end <= self.macros[at][1]


def squeezed(text):
    return " ".join(text.split())


def without_comments(text):
    return re.sub(r"//[^\n]*|/\*.*?\*/", " ", text, flags=re.S)


def split_arguments(text):
    """The arguments of a macro's parentheses; commas inside brackets and literals part nothing."""
    parts, depth, at = [""], 0, 0
    for token in re.findall(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|.', text, flags=re.S):
        if token == "," and depth == 0:
            parts.append("")
            continue
        depth += (token in "([{") - (token in ")]}")
        parts[-1] += token
    return [part.strip() for part in parts]


class Finder:
    """Walks one translation unit; collects for each of our files that it was not asked for before."""

    def __init__(self, root, wanted):
        self.root = root
        self.wanted = wanted  # path -> Source, filled as the files are met
        self.done = set()

    def run(self, path, arguments):
        options = TranslationUnit.PARSE_DETAILED_PROCESSING_RECORD
        unit = Index.create().parse(f"{self.root}/{path}", arguments, options=options)
        wrong = [str(row) for row in unit.diagnostics if row.severity >= 3]
        if wrong:
            raise RuntimeError(f"{path} does not compile: {wrong[0]}")
        here = {}
        for cursor in unit.cursor.get_children():
            source = self.source_of(cursor)
            if source is None or source.path in self.done:
                continue
            here.setdefault(source.path, []).append(cursor)
        for name, cursors in here.items():
            source = self.wanted[name]
            source.macros = sorted((c.extent.start.offset, c.extent.end.offset) for c in cursors
                                   if c.kind == Kind.MACRO_INSTANTIATION)
            for cursor in cursors:
                if cursor.kind == Kind.MACRO_INSTANTIATION:
                    log_line(source, cursor)
            for cursor in cursors:
                if not cursor.kind.is_preprocessing():
                    Walk(source).visit(cursor, None, "")
            self.done.add(name)

    def source_of(self, cursor):
        if cursor.location.file is None:
            return None
        name = cursor.location.file.name
        if not name.startswith(self.root + "/"):
            return None
        return self.wanted.get(name[len(self.root) + 1:])


def other_text(literal):
    """As long as it was, where the first character may be another."""
    return '"~" ' + literal if literal[1] in '\\%"' else '"~' + literal[2:]


def log_line(source, cursor):
    """A line of the log: away, at another level, with another text, with two values exchanged."""
    if not re.fullmatch(r"[A-Z]+_LOG(_AS)?", cursor.spelling):
        return
    start, end = cursor.extent.start.offset, cursor.extent.end.offset
    line = source.slice(start, end)
    arguments = split_arguments(without_comments(line)[len(cursor.spelling) + 1:-1])
    if source.slice(end, end + 1) != ";" or source.slice(source.text.rfind(b"\n", 0, start) + 1, start).startswith("#"):
        return
    level = 1 if cursor.spelling.endswith("_AS") else 0
    with_all = lambda changed: f"{cursor.spelling}({', '.join(changed)})"
    whole = lambda place, text: with_all([*arguments[:place], text, *arguments[place + 1:]])
    changes = [""]
    if arguments[level] in NEXT_LEVEL:
        changes.append(whole(level, NEXT_LEVEL[arguments[level]]))
    if arguments[level + 1].startswith('"'):
        changes.append(whole(level + 1, other_text(arguments[level + 1])))
    for i in range(level + 2, len(arguments) - 1):
        if arguments[i] != arguments[i + 1] and "str()" not in arguments[i] + arguments[i + 1]:
            changes.append(with_all([*arguments[:i], arguments[i + 1], arguments[i], *arguments[i + 2:]]))
    for changed in changes:
        source.mutants.append(Mutant(source.path, start, end + 1, STATEMENT, line, changed, ""))


class Walk:
    def __init__(self, source):
        self.source = source

    def add(self, cursor, shape, mutated, start=None, end=None):
        start = cursor.extent.start.offset if start is None else start
        end = cursor.extent.end.offset if end is None else end
        self.source.mutants.append(
            Mutant(self.source.path, start, end, shape, self.source.slice(start, end), mutated, self.function))

    def text(self, cursor):
        return without_comments(self.source.slice(cursor.extent.start.offset, cursor.extent.end.offset))

    def visit(self, cursor, parent, function):
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        if cursor.kind in FUNCTIONS:
            function = cursor.spelling
            if not cursor.is_definition() or function.lower() in HINTS - {"reserve"}:
                return
            self.source.functions.append((start, end, function))
        if cursor.kind in NOT_EVALUATED or self.source.in_macro(start, end):
            return
        if cursor.kind == Kind.CALL_EXPR and cursor.spelling.lower() in HINTS:
            return
        self.function = function
        self.mutate(cursor, parent)
        for child in self.evaluated(cursor):
            self.visit(child, cursor, function)

    def evaluated(self, cursor):
        """The children that run when the program does; what the compiler works out cannot be switched."""
        children = list(cursor.get_children())
        if cursor.kind == Kind.CASE_STMT:
            return children[1:]
        if cursor.kind in (Kind.DECL_REF_EXPR, Kind.TYPE_REF, Kind.TEMPLATE_REF):
            return []
        if cursor.kind == Kind.VAR_DECL and self.is_constant(cursor):
            return self.table(cursor, children)
        if cursor.kind in DECLARED:
            is_class_constant = cursor.kind == Kind.VAR_DECL and cursor.semantic_parent.kind in CLASSES
            if cursor.is_bitfield() or is_class_constant:
                return []
            is_local = cursor.semantic_parent.kind in FUNCTIONS and cursor.storage_class != StorageClass.STATIC
            if cursor.kind != Kind.PARM_DECL and not is_local:
                self.source.initial.append((cursor.extent.start.offset, cursor.extent.end.offset))
            return [child for child in children if child.extent.start.offset > self.name_end(cursor)]
        if cursor.kind in FUNCTIONS:
            return [child for child in children if child.kind not in (Kind.PARM_DECL, Kind.TYPE_REF)
                    and (child.extent.start.offset >= cursor.location.offset)]
        return children

    def name_end(self, cursor):
        """Behind the name and its array bounds."""
        at = cursor.location.offset + len(cursor.spelling.encode())
        bounds = re.match(rb"(\s*\[[^\]]*\])*", self.source.text[at:cursor.extent.end.offset])
        return at + bounds.end() - 1

    def is_constant(self, cursor):
        return "constexpr" in self.source.slice(cursor.extent.start.offset, cursor.location.offset)

    def table(self, cursor, children):
        """A table of constants is made an ordinary one, filled when the program starts, so that it can be switched, too."""
        kind = cursor.type.get_canonical().kind
        is_text = self.text(cursor).rstrip().endswith('"')
        rows = [child for child in children if child.extent.start.offset > self.name_end(cursor)]
        is_member = cursor.semantic_parent.kind in CLASSES
        if kind not in (TypeKind.CONSTANTARRAY, TypeKind.RECORD) or is_member or is_text or not rows:
            return []
        start = cursor.extent.start.offset
        found = re.search(r"(inline\s+)?constexpr\b", self.source.slice(start, cursor.location.offset))
        self.source.tables.append((start + found.start(), start + found.end()))
        self.source.initial.append((start, cursor.extent.end.offset))
        if not self.text(cursor).rstrip().endswith("}"):
            self.source.computed.append((rows[-1].extent.start.offset, rows[-1].extent.end.offset))
        return rows

    def mutate(self, cursor, parent):
        kind = cursor.kind
        if parent is not None and parent.kind in BODIES:
            self.removal(cursor, parent)
        if kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.operator(cursor)
        elif kind == Kind.UNARY_OPERATOR:
            self.unary(cursor)
        elif kind == Kind.INTEGER_LITERAL:
            self.number(cursor, parent)
        elif kind == Kind.CXX_BOOL_LITERAL_EXPR:
            self.add(cursor, EXPRESSION, "false" if self.text(cursor) == "true" else "true")
        elif kind == Kind.CHARACTER_LITERAL:
            self.add(cursor, EXPRESSION, f"static_cast<char>({self.text(cursor)} + 1)")
        elif kind == Kind.STRING_LITERAL:
            self.string(cursor, parent)
        elif kind == Kind.DECL_REF_EXPR:
            self.constant(cursor, parent)
        elif kind == Kind.CALL_EXPR:
            self.arguments(cursor)
        elif kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR):
            self.condition(cursor)

    def removal(self, cursor, parent):
        if not self.is_body(cursor, parent):
            return
        is_bare_return = cursor.kind == Kind.RETURN_STMT and self.text(cursor).strip() == "return"
        if cursor.kind not in REMOVED and not is_bare_return:
            return
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        closed = re.match(rb"\s*;", self.source.text[end:])
        if closed:
            self.add(cursor, STATEMENT, "", start, end + closed.end())

    def is_body(self, cursor, parent):
        """Whether it stands as a statement, not as a condition or a step of a loop."""
        if parent.kind == Kind.COMPOUND_STMT:
            return True
        before = without_comments(self.source.slice(parent.extent.start.offset, cursor.extent.start.offset)).rstrip()
        if parent.kind == Kind.DO_STMT:
            return before == "do"
        if parent.kind in (Kind.CASE_STMT, Kind.DEFAULT_STMT):
            return before.endswith(":")
        return before.endswith("else") or (before.endswith(")") and before.count("(") == before.count(")"))

    def operator(self, cursor):
        children = list(cursor.get_children())
        if len(children) != 2:
            return
        left, right = children
        between = without_comments(self.source.slice(left.extent.end.offset, right.extent.start.offset)).strip()
        flipped = FLIPPED.get(between)
        if flipped is None or (between in "+-" and left.type.kind == TypeKind.POINTER
                               and right.type.kind == TypeKind.POINTER):
            return
        self.add(cursor, EXPRESSION, f"{self.text(left)} {flipped} {self.text(right)}")

    def unary(self, cursor):
        text = self.text(cursor)
        child = next(cursor.get_children())
        if text.startswith("++") or text.endswith("++"):
            self.add(cursor, EXPRESSION, text.replace("++", "--"))
        elif text.startswith("--") or text.endswith("--"):
            self.add(cursor, EXPRESSION, text.replace("--", "++"))
        elif text[0] == "!" and not text.startswith("!="):
            self.add(cursor, EXPRESSION, f"static_cast<bool>({text[1:].strip()})")
        elif text[0] in "-~" and child.kind != Kind.INTEGER_LITERAL:
            self.add(cursor, EXPRESSION, text[1:].strip())

    def number(self, cursor, parent):
        text = self.text(cursor)
        start, end = cursor.extent.start.offset, cursor.extent.end.offset
        is_template_argument = self.source.slice(start - 1, start) == "<" and self.source.slice(end, end + 1) == ">"
        if not text[0].isdigit() or is_template_argument or (parent is not None and parent.kind in NAMES):
            return
        self.add(cursor, EXPRESSION, {"0": "1", "1": "0"}.get(text, f"{text} + 1"))

    def string(self, cursor, parent):
        text = self.text(cursor)
        if not text.startswith('"') or text == '""' or (parent is not None and parent.kind == Kind.LINKAGE_SPEC):
            return
        if parent is not None and parent.kind in DECLARED and parent.type.kind == TypeKind.CONSTANTARRAY:
            return
        self.add(cursor, EXPRESSION, other_text(text))

    def constant(self, cursor, parent):
        """The use of a named number: one more."""
        named = cursor.referenced
        if named is None or (parent is not None and parent.kind == Kind.MEMBER_REF_EXPR):
            return
        text = self.text(cursor)
        if named.kind == Kind.ENUM_CONSTANT_DECL:
            self.add(cursor, EXPRESSION, f"static_cast<decltype({text})>(static_cast<int>({text}) + 1)")
        elif named.kind == Kind.VAR_DECL and named.type.is_const_qualified():
            kind = named.type.get_canonical().kind
            is_number = TypeKind.CHAR_U.value <= kind.value <= TypeKind.INT128.value and kind != TypeKind.BOOL
            declared = [token.spelling for token in named.get_tokens()]
            if is_number and "constexpr" in declared:
                self.add(cursor, EXPRESSION, f"static_cast<std::remove_cvref_t<decltype({text})>>({text} + 1)")

    def arguments(self, cursor):
        """Neighbours that take each other's place without a word from the compiler."""
        arguments = list(cursor.get_arguments())
        declared = list(cursor.referenced.get_arguments()) if cursor.referenced is not None else []
        if len(arguments) != len(declared) or cursor.spelling in COMMUTING:
            return
        kinds = [parameter.type.get_canonical().spelling for parameter in declared]
        base, end = cursor.extent.start.offset, cursor.extent.end.offset
        for i, (first, second) in enumerate(zip(arguments, arguments[1:])):
            if kinds[i] != kinds[i + 1] or self.text(first) == self.text(second):
                continue
            one, other = first.extent, second.extent
            if not base < one.start.offset < one.end.offset <= other.start.offset < other.end.offset <= end:
                continue
            changed = (self.source.slice(base, one.start.offset) + self.text(second)
                       + self.source.slice(one.end.offset, other.start.offset) + self.text(first)
                       + self.source.slice(other.end.offset, end))
            self.add(cursor, EXPRESSION, without_comments(changed))

    def condition(self, cursor):
        children = list(cursor.get_children())
        if cursor.kind == Kind.IF_STMT:
            has_else = len(children) > 2 and "else" in without_comments(
                self.source.slice(children[-2].extent.end.offset, children[-1].extent.start.offset))
            asked = children[-3 if has_else else -2]
        elif cursor.kind == Kind.WHILE_STMT:
            asked = children[-2]
        else:
            asked = children[0]
        start, end = asked.extent.start.offset, asked.extent.end.offset
        is_declared = any(child.kind in DECLARED and child.extent.start.offset <= start < child.extent.end.offset
                          for child in children)
        if is_declared or asked.kind == Kind.DECL_STMT or self.source.in_macro(start, end):
            return
        text = self.text(asked)
        bare = asked
        while bare.kind in (Kind.UNEXPOSED_EXPR, Kind.PAREN_EXPR) and len(list(bare.get_children())) == 1:
            bare = next(bare.get_children())
        if bare.kind == Kind.UNARY_OPERATOR and text.startswith("!"):
            return
        if bare.kind == Kind.BINARY_OPERATOR:
            sides = list(bare.get_children())
            between = without_comments(self.source.slice(sides[0].extent.end.offset, sides[1].extent.start.offset))
            if between.strip() in DECIDES:
                return
        if bare.kind == Kind.CXX_BOOL_LITERAL_EXPR:
            return
        self.add(asked, EXPRESSION, f"!({text})")


def number_twins(mutants):
    """Parts mutants of one function that look the same."""
    seen = {}
    for mutant in mutants:
        name = (mutant.path, mutant.function, squeezed(mutant.original), squeezed(mutant.mutated))
        seen[name] = seen.get(name, 0) + 1
        mutant.nth = seen[name]


def find(root, paths, commands):
    """All mutants of `paths`, in the order of the files and of their places; the sources beside them."""
    sources = {path: Source(path, open(f"{root}/{path}", "rb").read()) for path in paths}
    finder = Finder(root, sources)
    for path in sorted(commands):
        finder.run(path, commands[path])
    for source in sources.values():
        name_functions(source)
        unique = {}
        for mutant in source.mutants:
            unique.setdefault((mutant.start, mutant.end, mutant.shape, mutant.mutated), mutant)
        source.mutants = sorted(unique.values(), key=lambda mutant: (mutant.start, -mutant.end, mutant.mutated))
        number_twins(source.mutants)
    return sources


def name_functions(source):
    """Log lines are found by the preprocessor, which knows no functions."""
    for mutant in source.mutants:
        if not mutant.function:
            around = [row for row in source.functions if row[0] <= mutant.start < row[1]]
            mutant.function = max(around)[2] if around else ""
