"""The changes of script/mutate that need the syntax tree: libclang gives the types, so that what is
changed compiles.

  argument    an argument of a call becomes another argument of that call that has the same type
  operand     one side of && or || goes
  exchange    two neighbouring statements change places; not where nobody could tell
  scope       an owner is declared in a block of its own, or in front of the block that it is in
  conversion  %i, %u, %x, %X, %p or %s of a format becomes another of them
  variable    a variable, parameter or member becomes another of its type that is in scope
  return      another result
  cast        a cast or a "& mask" goes
"""
import re
import subprocess
import sys
from glob import glob
from pathlib import Path

try:
    import clang.cindex as cindex
except ImportError:
    # Another Python than Debian's own, for which the package is.
    sys.path.append("/usr/lib/python3/dist-packages")
    try:
        import clang.cindex as cindex
    except ImportError:
        sys.exit("Debian's python3-clang is missing: script/bootstrap installs it")

Kind, Type = cindex.CursorKind, cindex.TypeKind
OPERATORS = ("argument", "operand", "exchange", "scope", "conversion", "variable", "return", "cast")
CONVERSION = re.compile(r"%%|%(?P<flags>[-0-9.*]*)(?P<letter>[iuxXps])")
INTEGERS = {"i": "uxX", "u": "xX", "x": "Xiu", "X": "xiu", "p": "xX", "s": "p"}
LOOPS = (Kind.FOR_STMT, Kind.WHILE_STMT, Kind.DO_STMT, Kind.CXX_FOR_RANGE_STMT)
CASTS = (Kind.CXX_STATIC_CAST_EXPR, Kind.CXX_REINTERPRET_CAST_EXPR, Kind.CSTYLE_CAST_EXPR,
         Kind.CXX_CONST_CAST_EXPR, Kind.CXX_FUNCTIONAL_CAST_EXPR)
LEAVES = (Kind.RETURN_STMT, Kind.BREAK_STMT, Kind.CONTINUE_STMT)


def compiler_arguments(root):
    """As the Windows build compiles, with the headers of its compiler and clang's own intrinsics."""
    said = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-E", "-x", "c++", "-", "-v"], text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE).stderr
    folders = [line.strip() for line in said[said.index("search starts here"):].splitlines() if line.startswith(" /")]
    version = re.search(r"libclang-(\d+)", cindex.conf.get_filename())
    own = sorted(glob("/usr/lib/llvm-%s/lib/clang/*/include" % (version.group(1) if version else "*")))
    arguments = ["-x", "c++", "--target=x86_64-w64-mingw32", "-std=c++20", "-nostdinc", "-nostdinc++", "-w",
                 "-D_WIN32_WINNT=0x0601", "-DWIN32_LEAN_AND_MEAN", "-DNOMINMAX",
                 "-I%s/src" % root, "-I%s/include" % root]
    for folder in folders:
        is_own = ".." not in folder and folder.endswith("/include")
        arguments += ["-isystem", own[-1] if is_own and own else folder]
    return arguments


class File:
    """One file of src/ with its tree."""

    def __init__(self, root, path, arguments):
        self.name = str(Path(root) / path)
        self.octets = Path(self.name).read_bytes()
        unit = cindex.Index.create().parse(self.name, args=arguments)
        errors = [d for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            sys.exit("libclang cannot read %s: %s" % (path, errors[0]))
        self.top = unit.cursor

    def text(self, start, end):
        return self.octets[start:end].decode()

    def of(self, cursor):
        return self.text(*span(cursor))

    def place(self, start, end, new):
        """A change: its offset and length in characters, and the replacement."""
        at = len(self.octets[:start].decode())
        return at, len(self.text(start, end)), new

    def is_here(self, cursor):
        file = cursor.location.file
        return file is not None and file.name == self.name


def span(cursor):
    return cursor.extent.start.offset, cursor.extent.end.offset


def bare(cursor):
    """The expression behind what libclang does not expose: implicit conversions."""
    while cursor.kind == Kind.UNEXPOSED_EXPR:
        inner = list(cursor.get_children())
        if len(inner) != 1:
            break
        cursor = inner[0]
    return cursor


def type_of(cursor):
    kind = cursor.type.get_canonical()
    if kind.kind in (Type.LVALUEREFERENCE, Type.RVALUEREFERENCE):
        kind = kind.get_pointee().get_canonical()
    return kind.spelling.replace("const ", "").replace(" const", "")


def is_known(spelling):
    return spelling and "dependent" not in spelling and "type-parameter" not in spelling and "(" not in spelling


def is_owner(kind):
    """Whether the end of such a variable does something: a class of the module's own, or a library owner."""
    kind = kind.get_canonical()
    if kind.kind != Type.RECORD:
        return False
    spelling = kind.spelling.replace("const ", "")
    if re.match(r"std::(unique_ptr|lock_guard|unique_lock|shared_ptr)<", spelling):
        return True
    if re.match(r"zarext::.*\b(Unique|Owned)", spelling):
        return True
    declaration = kind.get_declaration()
    return spelling.startswith("zarext::") and any(c.kind == Kind.DESTRUCTOR for c in declaration.get_children())


def statement_end(file, cursor):
    """The offset behind the statement and its semicolon."""
    end = span(cursor)[1]
    while file.octets[end:end + 1].isspace():
        end += 1
    if file.octets[end:end + 1] == b";":
        return end + 1
    return span(cursor)[1]


def declared(statement):
    if statement.kind != Kind.DECL_STMT:
        return []
    return [c for c in statement.get_children() if c.kind == Kind.VAR_DECL]


def names(text, name):
    return re.search(r"\b%s\b" % re.escape(name), text) is not None


def argument_changes(file, call):
    if re.match(r"operator\W*=$", call.spelling) and call.spelling not in ("operator==", "operator!=", "operator<=",
                                                                          "operator>="):
        return
    arguments = [a for a in call.get_arguments() if a is not None and span(a)[1] > span(a)[0]]
    seen = [(type_of(bare(a)), file.of(a), a) for a in arguments]
    for i, (kind, text, argument) in enumerate(seen):
        for j, (other, instead, _) in enumerate(seen):
            if i != j and kind == other and text != instead and is_known(kind):
                yield ("argument", *file.place(*span(argument), instead))
    for (kind, text, first), (other, instead, second) in zip(seen, seen[1:]):
        if kind == other and text != instead and is_known(kind):
            between = file.text(span(first)[1], span(second)[0])
            yield ("argument", *file.place(span(first)[0], span(second)[1], instead + between + text))


def binary_changes(file, cursor):
    sides = list(cursor.get_children())
    if len(sides) != 2:
        return
    left, right = span(sides[0]), span(sides[1])
    operator = file.text(left[1], right[0]).strip() if left[1] <= right[0] else ""
    if operator in ("&&", "||"):
        yield ("operand", *file.place(*span(cursor), file.text(*left)))
        yield ("operand", *file.place(*span(cursor), file.text(*right)))
    elif operator == "&":
        yield ("cast", *file.place(*span(cursor), file.text(*left)))


LABELS = (Kind.CASE_STMT, Kind.DEFAULT_STMT)
DOING = (Kind.CALL_EXPR, Kind.CXX_NEW_EXPR, Kind.CXX_DELETE_EXPR, Kind.CXX_THROW_EXPR, Kind.ASM_STMT)


def below(cursor):
    return [c for child in cursor.get_children() for c in child.walk_preorder()]


def writes(file, statement):
    """What a statement that only declares or assigns gives a value, as texts; None for other statements."""
    if any(c.kind in DOING for c in below(statement)):
        return None
    if statement.kind == Kind.DECL_STMT:
        return [c.spelling for c in statement.get_children() if c.spelling]
    if statement.kind == Kind.BINARY_OPERATOR:
        left = file.of(list(statement.get_children())[0])
        return [left] if re.fullmatch(r"[\w.]+|\w+->[\w.]+", left) else None
    return None


def is_constant(statement):
    """A declaration that reads nothing."""
    return statement.kind == Kind.DECL_STMT and not any(
        c.kind in (*DOING, Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR) for c in below(statement))


def cannot_be_told_apart(file, first, second):
    """Whether the order of two statements shows nowhere: the cases of a switch, two that give values to what
    the other does not name, a declaration that reads nothing."""
    if first.kind in LABELS and second.kind in LABELS:
        return True
    if is_constant(first) or is_constant(second):
        return True
    mine, other = writes(file, first), writes(file, second)
    if mine is None or other is None:
        return False
    return not any(names(file.of(second), w) for w in mine) and not any(names(file.of(first), w) for w in other)


def exchange_changes(file, block):
    statements = list(block.get_children())
    for first, second in zip(statements, statements[1:]):
        if first.kind in LEAVES or second.kind in LEAVES or cannot_be_told_apart(file, first, second):
            continue
        a, b = (span(first)[0], statement_end(file, first)), (span(second)[0], statement_end(file, second))
        if a[1] > b[0] or any(names(file.text(*b), v.spelling) for v in declared(first)):
            continue
        between = file.text(a[1], b[0])
        # Behind a switch only what neither declares nor depends on how the compiler lays out the function.
        declares = any(s.kind == Kind.DECL_STMT or s.kind in LABELS or re.search("__asm__|__builtin_unreachable", file.of(s))
                       for s in (first, second))
        yield ("exchange", *file.place(a[0], b[1], file.text(*b) + between + file.text(*a)), declares)


def scope_changes(file, block, holder):
    """`holder`: the statement whose block this is, or None."""
    statements = list(block.get_children())
    for i, statement in enumerate(statements):
        owners = [v for v in declared(statement) if is_owner(v.type)]
        if not owners:
            continue
        start, end = span(statement)[0], statement_end(file, statement)
        name = owners[0].spelling
        users = [j for j in range(i + 1, len(statements)) if names(file.of(statements[j]), name)]
        last = users[-1] if users else i
        close = statement_end(file, statements[last])
        if last + 1 < len(statements):
            yield ("scope", *file.place(start, close, "{ " + file.text(start, close) + " }"))
        if i == 0 and holder is not None:
            begin = span(holder)[0]
            yield ("scope", *file.place(begin, end, file.text(start, end) + "\n" + file.text(begin, start)))
    for statement in statements:
        inside = list(statement.get_children())
        if statement.kind == Kind.COMPOUND_STMT and any(is_owner(v.type) for s in inside for v in declared(s)):
            start, end = span(statement)
            yield ("scope", *file.place(start, end, file.text(start + 1, end - 1).strip()))


def conversion_changes(file, literal):
    start, end = span(literal)
    text = file.text(start, end)
    if not text.startswith('"'):
        return
    for found in CONVERSION.finditer(text):
        for letter in INTEGERS.get(found.group("letter") or "", ""):
            at = start + len(text[:found.start("letter")].encode())
            yield ("conversion", *file.place(at, at + 1, letter))


def return_changes(file, statement):
    values = list(statement.get_children())
    if not values:
        return
    value, text = values[0], file.of(values[0])
    kind = value.type.get_canonical()
    if text in ("TRUE", "FALSE", "true", "false"):
        new = {"TRUE": "FALSE", "FALSE": "TRUE", "true": "false", "false": "true"}[text]
    elif kind.kind == Type.BOOL:
        new = "!(%s)" % text
    elif kind.kind == Type.POINTER and text != "nullptr":
        new = "nullptr"
    elif kind.kind in (Type.INT, Type.UINT, Type.LONG, Type.ULONG, Type.LONGLONG, Type.ULONGLONG, Type.UCHAR,
                       Type.USHORT):
        new = "(%s) + 1" % text
    elif kind.kind in (Type.RECORD, Type.ENUM) and not re.fullmatch(r"\{[{}0, ]*\}|std::nullopt|\*.*", text, re.S):
        new = "{}"
    else:
        return
    yield ("return", *file.place(*span(value), new))


def cast_changes(file, cast):
    if cast.type.get_canonical().kind == Type.VOID:
        return
    inner = [c for c in cast.get_children() if c.kind.is_expression()]
    if inner and span(inner[-1]) != span(cast):
        yield ("cast", *file.place(*span(cast), "(%s)" % file.of(inner[-1])))


def variable_changes(file, reference, scope):
    name = reference.spelling
    if file.of(reference) != name:
        return
    kind = type_of(reference)
    if not is_known(kind):
        return
    for other, other_kind in scope:
        if other != name and other_kind == kind:
            yield ("variable", *file.place(*span(reference), other))


def members_of(function):
    parent = function.semantic_parent
    if parent is None or parent.kind not in (Kind.CLASS_DECL, Kind.STRUCT_DECL):
        return []
    return [(c.spelling, type_of(c)) for c in parent.get_children() if c.kind == Kind.FIELD_DECL and c.spelling]


FUNCTIONS = (Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR, Kind.FUNCTION_TEMPLATE,
             Kind.CONVERSION_FUNCTION)


def walk(file, cursor, scope, holder):
    """Every change below `cursor`. `scope`: (name, type) of what can be named there."""
    for child in cursor.get_children():
        if not file.is_here(child) and child.kind != Kind.NAMESPACE:
            continue
        kind = child.kind
        if kind == Kind.STATIC_ASSERT:
            continue
        if kind in FUNCTIONS:
            yield from walk(file, child, members_of(child) + [
                (p.spelling, type_of(p)) for p in child.get_children() if p.kind == Kind.PARM_DECL and p.spelling],
                            None)
            continue
        if kind == Kind.LAMBDA_EXPR:
            inner = scope + [(p.spelling, type_of(p)) for p in child.get_children()
                             if p.kind == Kind.PARM_DECL and p.spelling]
            yield from walk(file, child, inner, None)
            continue
        if kind == Kind.CALL_EXPR:
            yield from argument_changes(file, child)
        elif kind == Kind.BINARY_OPERATOR:
            yield from binary_changes(file, child)
        elif kind == Kind.COMPOUND_STMT:
            yield from exchange_changes(file, child)
            yield from scope_changes(file, child, holder)
            yield from walk(file, child, list(scope), None)
            continue
        elif kind == Kind.STRING_LITERAL:
            yield from conversion_changes(file, child)
        elif kind == Kind.RETURN_STMT:
            yield from return_changes(file, child)
        elif kind in CASTS:
            yield from cast_changes(file, child)
        elif kind in (Kind.DECL_REF_EXPR, Kind.MEMBER_REF_EXPR):
            yield from variable_changes(file, child, scope)
        inner = scope
        if kind in LOOPS or kind in (Kind.IF_STMT, Kind.CXX_TRY_STMT):
            yield from walk(file, child, list(scope), child if kind != Kind.CXX_TRY_STMT else None)
            continue
        yield from walk(file, child, inner, None)
        if kind == Kind.VAR_DECL and child.spelling:
            scope.append((child.spelling, type_of(child)))


def changes_of(root, path, arguments):
    """Every change of the file: (kind, offset, length, replacement), and for an exchange whether one of the
    statements is a declaration or a case."""
    file = File(root, path, arguments)
    found, seen = [], set()
    for change in walk(file, file.top, [], None):
        if change not in seen:
            seen.add(change)
            found.append(change)
    return found
