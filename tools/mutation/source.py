# SPDX-License-Identifier: MIT
"""Finds the places of a C++ file that a mutation may change, by way of libclang."""
import ctypes
import re

from clang import cindex
from clang.cindex import CursorKind as K, TypeKind as T

RELATIONS = {"<": ("<=", ">="), "<=": ("<", ">"), ">": (">=", "<="), ">=": (">", "<"),
             "==": ("!=",), "!=": ("==",)}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<",
              "&": "|", "|": "&", "^": "|"}
COMPOUND = {operator + "=": other + "=" for operator, other in ARITHMETIC.items()}
INTEGERS = {T.CHAR_U, T.UCHAR, T.USHORT, T.UINT, T.ULONG, T.ULONGLONG,
            T.CHAR_S, T.SCHAR, T.SHORT, T.INT, T.LONG, T.LONGLONG}
FUNCTIONS = {K.FUNCTION_DECL, K.CXX_METHOD, K.CONSTRUCTOR, K.DESTRUCTOR, K.CONVERSION_FUNCTION,
             K.FUNCTION_TEMPLATE}
LOOPS = {K.FOR_STMT, K.WHILE_STMT, K.DO_STMT, K.CXX_FOR_RANGE_STMT}
CONSTANT = {K.CXX_UNARY_EXPR, K.TYPE_REF, K.TEMPLATE_REF, K.NAMESPACE_REF, K.STATIC_ASSERT, K.PARM_DECL}
TOKEN = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])*\'|//[^\n]*|/\*.*?\*/', re.S)


def one_line(text):
    """The text without comments and line ends: __LINE__ must not move where it stands a second time."""
    text = TOKEN.sub(lambda m: " " if m.group().startswith("/") else m.group(), text)
    return re.sub(r"\s+", " ", text).strip() if '"' not in text else re.sub(r"\s*\n\s*", " ", text).strip()


def _made_of_nothing(record):
    """Whether {} is a value of the class."""
    declared = record.get_declaration()
    template = cindex.conf.lib.clang_getSpecializedCursorTemplate(declared)
    kinds = [child for child in (template or declared).get_children() if child.kind == K.CONSTRUCTOR]
    return not kinds or any(not list(made.get_arguments()) for made in kinds)


class Site:
    """A place: an expression or a statement, and what may stand there instead."""

    def __init__(self, start, end, statement):
        self.start, self.end, self.statement = start, end, statement
        self.mutants = []  # (operator, form, text), form one of "instead", "not", "drop", "return"
        self.lanes = None  # element and number of the vector that a constant is spread over


class Finder:
    """Sites of one file, parsed as part of a translation unit."""

    def __init__(self, name, path):
        self.name, self.path = name, path
        with open(path, encoding="latin-1") as file:  # libclang counts bytes
            self.text = file.read()
        self.sites = {}
        self.seen = set()

    def scan(self, unit):
        self._declarations(unit.cursor)

    # --- places ---

    def _spelled(self, location):
        file = cindex.c_object_p()
        line, column, offset = ctypes.c_uint(), ctypes.c_uint(), ctypes.c_uint()
        cindex.conf.lib.clang_getSpellingLocation(location, ctypes.byref(file), ctypes.byref(line),
                                                  ctypes.byref(column), ctypes.byref(offset))
        return (cindex.File(file).name if file else None), offset.value

    def _range(self, cursor):
        """Where the cursor's text stands in this file; None when a macro's body made it."""
        start, end = cursor.extent.start, cursor.extent.end
        if not start.file or start.file.name != self.path or not end.file or end.file.name != self.path:
            return None
        ends = []
        for location in (start, end):
            file, offset = self._spelled(location)
            in_argument = file == self.path and offset > location.offset
            ends.append(offset if in_argument else location.offset)
        macro = re.compile(r"[A-Za-z_]\w*\s*\(").match(self.text, start.offset)
        if ends[0] == start.offset and self._spelled(start) != (self.path, start.offset) and macro:
            return None
        return (ends[0], ends[1]) if ends[0] < ends[1] else None

    def _text(self, place):
        return self.text[place[0]:place[1]]

    def _add(self, place, operator, form, text="", statement=False):
        site = self.sites.setdefault((*place, statement), Site(*place, statement))
        if (operator, form, text) not in site.mutants:
            site.mutants.append((operator, form, text))

    # --- declarations ---

    def _declarations(self, cursor):
        for child in cursor.get_children():
            if child.location.file is None or child.location.file.name != self.path:
                if child.kind != K.NAMESPACE:
                    continue
            if child.kind in FUNCTIONS:
                if child.is_definition():
                    self._function(child)
            elif child.kind in (K.NAMESPACE, K.CLASS_DECL, K.STRUCT_DECL, K.CLASS_TEMPLATE, K.LINKAGE_SPEC,
                                K.UNEXPOSED_DECL):
                self._declarations(child)

    def _function(self, cursor):
        result = cursor.result_type.get_canonical()
        for child in cursor.get_children():
            if child.kind == K.COMPOUND_STMT:
                returns = result if cursor.kind != K.FUNCTION_TEMPLATE else None
                nothing = result.kind == T.VOID or cursor.kind in (K.CONSTRUCTOR, K.DESTRUCTOR)
                self._statement(child, nothing, returns)
            elif child.kind.is_expression():
                self._expression(child)

    # --- statements ---

    def _statement(self, cursor, follow, result):
        """follow: what comes after the statement runs when it is left out."""
        kind = cursor.kind
        children = list(cursor.get_children())
        if kind == K.COMPOUND_STMT:
            for i, child in enumerate(children):
                self._statement(child, i + 1 < len(children) or follow, result)
        elif kind == K.IF_STMT:
            self._if(cursor, children, follow, result)
        elif kind in LOOPS and not self._log_or_assertion(cursor):
            self._loop(cursor, children, follow, result)
        elif kind == K.SWITCH_STMT:
            self._expression(children[0])
            self._statement(children[-1], follow, result)
        elif kind in (K.CASE_STMT, K.DEFAULT_STMT):
            self._statement(children[-1], follow, result)
        elif kind == K.RETURN_STMT:
            self._return(cursor, children, follow, result)
        elif kind in (K.BREAK_STMT, K.CONTINUE_STMT):
            self._drop(cursor, "jump dropped")
        elif kind == K.DECL_STMT:
            for child in children:
                self._variable(child)
        elif kind.is_expression():
            self._expression_statement(cursor)
            self._expression(cursor)
        elif kind in LOOPS:
            self._drop(cursor, "log or assertion dropped")
            self._arguments(cursor)

    def _log_or_assertion(self, cursor):
        return re.compile(r"VEXA_(LOG|ASSERT)\(").match(self.text, cursor.extent.start.offset) is not None

    def _arguments(self, cursor):
        """Expressions of a macro call that stand in this file."""
        if cursor.kind.is_expression() and self._range(cursor):
            self._expression(cursor)
            if cursor.kind == K.UNARY_OPERATOR or self._text(self._range(cursor))[0] != "(":
                return
        for child in cursor.get_children():
            self._arguments(child)

    def _head_end(self, cursor):
        """Behind the parentheses after if and while."""
        depth = 0
        position = self.text.index("(", cursor.extent.start.offset)
        for position in range(position, cursor.extent.end.offset):
            depth += {"(": 1, ")": -1}.get(self.text[position], 0)
            if depth == 0:
                return position
        return position

    def _if(self, cursor, children, follow, result):
        end = self._head_end(cursor)
        declared = any(child.kind == K.VAR_DECL for child in children)
        for child in children:
            place = self._range(child)
            if place and place[1] <= end:
                if child.kind == K.DECL_STMT:
                    self._statement(child, False, result)
                elif child.kind == K.VAR_DECL:
                    self._variable(child)
                elif not declared and not self.text[place[1]:end].strip():
                    self._condition(child)
            else:
                self._statement(child, follow, result)

    def _loop(self, cursor, children, follow, result):
        for child in children[:-1]:
            if cursor.kind == K.WHILE_STMT:
                if child.kind == K.VAR_DECL:
                    self._variable(child)
                    break
                self._condition(child)
            elif child.kind == K.DECL_STMT:
                self._statement(child, False, result)
            elif child.kind.is_expression():
                self._expression(child)
        self._statement(children[-1], follow, result)

    def _condition(self, cursor):
        place = self._range(cursor)
        if place and self._operator(cursor) not in RELATIONS and not self._text(place).startswith("!"):
            self._add(place, "condition negated", "not")
        self._expression(cursor)

    def _with_semicolon(self, place):
        end = re.compile(r"\s*;").match(self.text, place[1])
        return (place[0], end.end()) if end else None

    def _drop(self, cursor, operator):
        extent = (cursor.extent.start.offset, cursor.extent.end.offset)
        written = extent if self._log_or_assertion(cursor) else self._range(cursor)
        place = self._with_semicolon(written) if written else None
        if place:
            self._add(place, operator, "drop", statement=True)

    def _expression_statement(self, cursor):
        inner = cursor
        while inner.kind == K.UNEXPOSED_EXPR and len(list(inner.get_children())) == 1:
            inner = next(inner.get_children())
        if self._operator(inner) == "=" or inner.kind in (K.COMPOUND_ASSIGNMENT_OPERATOR, K.UNARY_OPERATOR):
            self._drop(cursor, "assignment dropped")
        else:
            self._drop(cursor, "call dropped")

    def _return(self, cursor, children, follow, result):
        place = self._range(cursor)
        if place and follow:
            self._drop(cursor, "early return dropped")
        if not children:
            return
        value = self._range(children[0])
        literal = value and re.fullmatch(r"-?\w+|nullptr|true|false|\{\}|-?kFailed", self._text(value))
        if value and result is not None and not literal:
            plain = self._operator(children[0])
            if result.kind == T.BOOL and plain not in RELATIONS and not self._text(value).startswith("!"):
                self._add(value, "returned value replaced", "not")
            elif result.kind in INTEGERS:
                self._add(value, "returned value replaced", "instead", "0")
            elif result.kind == T.POINTER:
                self._add(value, "returned value replaced", "instead", "nullptr")
            elif result.kind == T.RECORD and self._with_semicolon(place) and _made_of_nothing(result):
                self._add(self._with_semicolon(place), "returned value replaced", "return", statement=True)
        self._expression(children[0])

    def _variable(self, cursor):
        place = self._range(cursor)
        if not place or re.search(r"\b(constexpr|static)\b", self.text[place[0]:cursor.location.offset]):
            return
        array = cursor.type.kind in (T.CONSTANTARRAY, T.INCOMPLETEARRAY)
        for child in cursor.get_children():
            inner = self._range(child)
            if not child.kind.is_expression() or not inner or inner[0] < cursor.location.offset:
                continue
            if self.text[:inner[0]].rstrip().endswith("[") or (array and child.kind == K.STRING_LITERAL):
                continue
            self._expression(child)

    # --- expressions ---

    def _operator(self, cursor):
        while cursor.kind in (K.UNEXPOSED_EXPR, K.PAREN_EXPR) and len(list(cursor.get_children())) == 1:
            cursor = next(cursor.get_children())
        if cursor.kind not in (K.BINARY_OPERATOR, K.COMPOUND_ASSIGNMENT_OPERATOR):
            return None
        left, right = [self._range(child) for child in cursor.get_children()]
        return one_line(self.text[left[1]:right[0]]) if left and right else None

    def _expression(self, cursor, in_list=False):
        if cursor.kind in CONSTANT:
            return
        if cursor.kind == K.LAMBDA_EXPR:
            for child in cursor.get_children():
                if child.kind == K.COMPOUND_STMT:
                    self._statement(child, False, None)
            return
        place = self._range(cursor)
        if place and self._text(place).startswith("__builtin_shufflevector"):  # takes constants alone
            return
        handler = self.HANDLERS.get(cursor.kind)
        if handler and place:
            handler(self, cursor, place, in_list)
        if cursor.kind == K.STRING_LITERAL:
            return
        for child in cursor.get_children():
            inner = self._range(child)
            inside = not inner or not place or place[0] <= inner[0] and inner[1] <= place[1]
            if child.kind.is_expression() and inside:
                self._expression(child, in_list or cursor.kind == K.INIT_LIST_EXPR)
        if cursor.type.get_canonical().kind == T.VECTOR and place:
            self._beside_vector(cursor, self.sites.get((*place, False)))

    def _beside_vector(self, cursor, site):
        """A constant that the compiler spreads over the lanes: it does so for nothing else of type int."""
        if site and all(operator == "constant" for operator, _, _ in site.mutants):
            vector = cursor.type.get_canonical()
            site.lanes = f"{vector.element_type.spelling}, {vector.element_count}"

    def _binary(self, cursor, place, _):
        sides = [self._range(child) for child in cursor.get_children()]
        operator = self._operator(cursor)
        if len(sides) != 2 or operator is None:
            return
        left, right = [one_line(self._text(side)) for side in sides]
        types = [child.type.get_canonical().kind for child in cursor.get_children()]
        for other in RELATIONS.get(operator, ()):
            self._add(place, "relation", "instead", f"{left} {other} {right}")
        if operator in ("&&", "||"):
            other = {"&&": "||", "||": "&&"}[operator]
            self._add(place, "and/or", "instead", f"({left}) {other} ({right})")
            self._add(place, "side dropped", "instead", f"static_cast<bool>({left})")
            self._add(place, "side dropped", "instead", f"static_cast<bool>({right})")
        if operator in ARITHMETIC and (types[1] in INTEGERS and (types[0] in INTEGERS or operator in "+-")):
            self._add(place, "arithmetic", "instead", f"{left} {ARITHMETIC[operator]} {right}")

    def _compound(self, cursor, place, _):
        operator = self._operator(cursor)
        sides = [self._range(child) for child in cursor.get_children()]
        if operator in COMPOUND and all(sides):
            left, right = [one_line(self._text(side)) for side in sides]
            self._add(place, "arithmetic", "instead", f"{left} {COMPOUND[operator]} {right}")

    def _unary(self, cursor, place, _):
        text = one_line(self._text(place))
        if text.startswith("!="):  # of a class that only has ==
            return
        if text.startswith("++") or text.startswith("--"):
            self._add(place, "arithmetic", "instead", {"+": "--", "-": "++"}[text[0]] + text[2:])
        elif text.endswith("++") or text.endswith("--"):
            self._add(place, "arithmetic", "instead", text[:-2] + {"+": "--", "-": "++"}[text[-1]])
        elif text.startswith("!"):
            self._add(place, "condition negated", "instead", f"static_cast<bool>({text[1:]})")
        elif text[0] in "-~":
            self._add(place, "arithmetic", "instead", text[1:])

    def _choice(self, cursor, _place, _):
        condition = next(cursor.get_children())
        place = self._range(condition)
        if place and self._operator(condition) not in RELATIONS and not self._text(place).startswith("!"):
            self._add(place, "condition negated", "not")

    def _number(self, _, place, in_list):
        text = self._text(place)
        if in_list or not text[0].isdigit():
            return
        self._add(place, "constant", "instead", f"{text} + 1")
        if text != "0":
            self._add(place, "constant", "instead", f"{text} - 1")
        if text not in ("0", "1"):
            self._add(place, "constant", "instead", "0")

    def _flag(self, _, place, _in_list):
        text = self._text(place)
        if text in ("true", "false"):
            self._add(place, "constant", "instead", {"true": "false", "false": "true"}[text])

    def _string(self, _, place, _in_list):
        text = one_line(self._text(place))
        if not re.fullmatch(r'("(\\.|[^"\\])*"\s*)+', text):
            return
        self._add(place, "text", "instead", f'"~" {text}')
        tail = re.search(r'(\\.|[^"\\%])"$', text)
        if tail and len(text) > 4 and not re.search(r'%[-.*0-9l]*[a-z]"$', text):
            self._add(place, "text", "instead", text[:tail.start()] + '"')

    def _reference(self, cursor, place, in_list):
        target = cursor.referenced
        if target is None:
            return
        if target.kind == K.ENUM_CONSTANT_DECL:
            return self._enumerator(target, place)
        if target.kind != K.VAR_DECL or not re.match(r"k[A-Z]", target.spelling):
            return
        text, kind = self._text(place), target.type.get_canonical().kind
        element = {T.CONSTANTARRAY: lambda t: t.element_type, T.POINTER: lambda t: t.get_pointee()}.get(kind)
        if kind in INTEGERS and not in_list:
            self._add(place, "constant", "instead", f"{text} + 1")
            self._add(place, "constant", "instead", f"{text} - 1")
        elif element and element(target.type.get_canonical()).kind == T.CHAR_S:
            self._add(place, "text", "instead", '"~"')

    def _enumerator(self, target, place):
        enum = target.semantic_parent
        file = enum.location.file.name if enum.location.file else ""
        names = [child.spelling for child in enum.get_children() if child.kind == K.ENUM_CONSTANT_DECL]
        if "vexa" not in file or len(names) < 2:
            return
        scope, outer = [], enum if enum.is_scoped_enum() else enum.semantic_parent
        while outer and outer.kind != K.TRANSLATION_UNIT:
            if outer.spelling:
                scope.insert(0, outer.spelling)
            outer = outer.semantic_parent
        other = names[(names.index(target.spelling) + 1) % len(names)]
        operator = "log level" if enum.spelling == "Level" else "constant"
        self._add(place, operator, "instead", "::" + "::".join(scope + [other]))

    HANDLERS = {K.BINARY_OPERATOR: _binary, K.COMPOUND_ASSIGNMENT_OPERATOR: _compound,
                K.UNARY_OPERATOR: _unary, K.CONDITIONAL_OPERATOR: _choice, K.INTEGER_LITERAL: _number,
                K.CXX_BOOL_LITERAL_EXPR: _flag, K.STRING_LITERAL: _string, K.DECL_REF_EXPR: _reference}
