# SPDX-License-Identifier: MIT
"""Manual pages of section 3, one for each family, from the headers' descriptions."""
import email.utils
import os
import re
import subprocess
import textwrap

import contents
from faults import Fault
from reference import listed, plain

README = "README.md"


def page_name(header):
    return "libvexadm" if header in contents.SHARED else f"vexadm-{header}"


def escaped(text):
    """Text that says to roff what it says to people."""
    text = text.replace("\\", "\\e")
    for plain_character, roff in ("^", "\\(ha"), ("~", "\\(ti"), ("`", "\\(ga"), ("'", "\\(aq"):
        text = text.replace(plain_character, roff)
    # A dash between letters divides a word, any other is a minus that can be copied.
    text = re.sub(r"(?<![A-Za-z])-|-(?![A-Za-z])", r"\\-", text)
    return "".join(c if ord(c) < 128 else f"\\[u{ord(c):04X}]" for c in text)


def quoted(text):
    """An argument of a macro."""
    return '"' + escaped(text).replace('"', "\\(dq") + '"'


def guarded(line):
    return "\\&" + line if line.startswith((".", "\\(aq")) else line


class Page:
    """Writes roff: knows whether a paragraph has to be divided from what stands before it."""

    def __init__(self):
        self.lines = []
        self.fresh = True  # nothing stands below the heading yet

    def raw(self, *lines):
        self.lines += lines

    def section(self, title):
        self.raw(f".SH {quoted(title)}" if " " in title else f".SH {escaped(title)}")
        self.fresh = True

    def subsection(self, title):
        self.raw(f".SS {quoted(title)}" if " " in title else f".SS {escaped(title)}")
        self.fresh = True

    def divide(self):
        if not self.fresh:
            self.raw(".PP")
        self.fresh = False

    def text(self, text):
        """A running text, a sentence or so to the line."""
        text = re.sub(r"\s+", " ", text).strip()
        # Breaking at a blank within bold text would be fine too; quotes are kept as they are.
        for line in textwrap.wrap(text, 78, break_long_words=False, break_on_hyphens=False):
            self.raw(guarded(line))

    def paragraph(self, text):
        if text.strip():
            self.divide()
            self.text(text)

    def tagged(self, tag, text):
        self.raw(".TP", tag)
        self.text(text)
        self.fresh = False

    def code(self, text):
        self.divide()
        # Blank lines inside would be paragraphs; as they are, lines stay lines.
        self.raw(".RS 4", ".EX")
        self.raw(*(guarded(escaped(line)) for line in text.strip("\n").split("\n")))
        self.raw(".EE", ".RE")

    def table(self, rows):
        """The first column as wide as it has to be, the last one takes what is left."""
        self.divide()
        columns = len(rows[0])
        self.raw(".TS", " ".join(["lb"] * (columns - 1) + ["lbx"]) , " ".join(["l"] * (columns - 1) + ["lx"]) + ".")
        for row in rows:
            self.raw("\t".join(f"T{{\n.ad l\n{guarded(cell)}\nT}}" if len(cell) > 30 and " " in cell else guarded(cell)
                               for cell in row))
        self.raw(".TE")
        self.fresh = False


def words(text):
    """Text of a sentence: escaped, and names are not divided at the end of a line."""
    return re.sub(r"(?<![\w.\\])(?=\w*_\w)(?=\w)", r"\\%", escaped(text))


def inline(element):
    """The text of a description's element as roff; names of members in bold."""
    text = words(element.text or "")
    for child in element:
        if child.tag in ("ref", "bold", "computeroutput"):
            text += f"\\fB{inline(child)}\\fR"
        elif child.tag == "emphasis":
            text += f"\\fI{inline(child)}\\fR"
        elif child.tag in ("ndash", "mdash"):
            text += "\\(en" if child.tag == "ndash" else "\\(em"
        elif child.tag == "linebreak":
            text += " "
        elif child.tag not in BLOCKS and child.tag not in SEPARATE:
            text += inline(child)
        text += words(child.tail or "")
    return re.sub(r"\s+", " ", text)


BLOCKS = {"verbatim", "table", "itemizedlist", "orderedlist"}
SEPARATE = {"parameterlist", "simplesect", "anchor"}


def description(page, element):
    """Paragraphs, code, tables and lists of a description; arguments and results are left to others."""
    for para in element.findall("para"):
        text = words(para.text or "")
        for child in para:
            if child.tag in BLOCKS:
                page.paragraph(text)
                text = ""
                block(page, child)
            elif child.tag not in SEPARATE:
                wrapper = type(child)("para")
                wrapper.append(child)
                text += inline(wrapper)
                continue
            text += words(child.tail or "")
        page.paragraph(text)


def block(page, element):
    if element.tag == "verbatim":
        page.code(textwrap.dedent(element.text.strip("\n")))
    elif element.tag == "table":
        page.table([[" ".join(inline(para).strip() for para in entry.findall("para")) for entry in row]
                    for row in element.findall("row")])
    else:
        for item in element.findall("listitem"):
            page.raw(".IP \\(bu 2")
            page.text(" ".join(inline(para) for para in item.findall("para")))
        page.fresh = False


def sections(member, kind):
    return [s for s in member.details.iter("simplesect") if s.get("kind") == kind]


def tell(page, element, introduction=""):
    """What is said of an argument, a result or in a note: running text, or text with lists and tables."""
    if any(next(element.iter(tag), None) is not None for tag in BLOCKS):
        if introduction:
            page.paragraph(introduction)
        description(page, element)
    else:
        page.paragraph(f"{introduction} {prose_of(element)}")


def prose_of(element):
    return " ".join(inline(para).strip() for para in element.findall("para"))


def prototype(member):
    """The lines of a declaration, none wider than a manual page."""
    arguments = [join(kind, name + array) for kind, name, array in member.arguments] or ["void"]
    if member.declaration.rstrip().endswith("...)"):
        arguments.append("...")
    lines = [join(member.result, member.name) + "("]
    indent = " " * min(len(lines[0]), 24)
    for i, argument in enumerate(arguments):
        piece = argument + (");" if i == len(arguments) - 1 else ",")
        if len(lines[-1]) + len(piece) > 72 and i > 0:
            lines.append(indent + piece)
        else:
            lines[-1] += (" " if i > 0 else "") + piece
    return lines


def join(kind, name):
    return kind + ("" if kind.endswith("*") else " ") + name if name else kind


def bold_lines(lines):
    """Declarations, line by line as they stand; bold as those of other manual pages."""
    return [f"\\fB{escaped(line)}\\fR" for line in lines]


def declared(header, member):
    """A record or an enumeration as the header has it, with its comments."""
    with open(f"include/vexadm/{header.name}.h", encoding="utf-8") as source:
        lines = source.read().split("\n")[member.body[0] - 1:member.body[1]]
    text = "\n".join(lines)
    text = re.sub(r"/\*\*<? ?", "/* ", text)
    return re.sub(r"^(\s*) \* ?", r"\1 * ", text, flags=re.MULTILINE)


def macro(header, member):
    """A macro as the header has it, without what stands behind it."""
    with open(f"include/vexadm/{header.name}.h", encoding="utf-8") as source:
        lines = source.read().split("\n")[member.line - 1:]
    last = next(i for i, line in enumerate(lines) if not line.endswith("\\"))
    return re.sub(r" */\*\*<.*", "", "\n".join(lines[:last + 1]))


def synopsis(page, header):
    page.section("SYNOPSIS")
    page.raw(".nf", f"\\fB#include <vexadm/{header.name}.h>\\fR")
    for group in header.groups:
        functions = [member for member in group.members if member.kind in ("function", "variable")]
        if not functions:
            continue
        page.raw(".PP")
        if group.title:
            page.raw(f"/* {escaped(group.title)} */")
        for member in functions:
            if member.kind == "variable":
                page.raw(*bold_lines([f"extern {member.declaration};"]))
            else:
                page.raw(*bold_lines(prototype(member)))
    page.raw(".fi", ".PP", "Link with \\fI\\-lvexadm\\fR; in a build, by the flags that", "\\fBpkg\\-config\\fR gives for \\fIvexadm\\fR.")
    page.fresh = False


def function(page, member):
    page.subsection(f"{member.name}()")
    page.raw(".nf", *bold_lines(prototype(member)), ".fi")
    page.fresh = False
    brief = prose_of(member.brief)
    page.paragraph(brief)
    description(page, member.details)
    arguments = listed(member, "param")
    if arguments:
        page.paragraph("Arguments:")
        page.raw(".RS 4")
        for names, text in arguments:
            page.tagged(f"\\fI{escaped(', '.join(names))}\\fR", prose_of(text))
        page.raw(".RE")
    results = sections(member, "return")
    values = listed(member, "retval")
    if results or values:
        page.paragraph("Result:")
        page.raw(".RS 4")
        for names, text in values:
            page.tagged(f"\\fB{escaped(', '.join(names))}\\fR", prose_of(text))
        page.fresh = not values
        for result in results:
            tell(page, result)
        page.raw(".RE")
        page.fresh = False
    for kind, title in ("note", "Note"), ("warning", "Warning"):
        for section in sections(member, kind):
            tell(page, section, f"\\fI{title}:\\fR")


def other_members(page, header, group):
    """Macros, objects, types: what is no function."""
    for member in group.members:
        if member.kind == "function":
            continue
        if member.kind in ("record", "enum"):
            page.subsection(member.name if not member.name.startswith("@") else "Values")
            page.paragraph(prose_of(member.brief))
            description(page, member.details)
            page.code(declared(header, member))
            continue
        title = member.declaration if member.kind == "define" else member.name
        page.subsection(title)
        page.paragraph(prose_of(member.brief))
        description(page, member.details)
        for section in sections(member, "note"):
            tell(page, section, "\\fINote:\\fR")
        for names, text in listed(member, "param"):
            page.tagged(f"\\fI{escaped(', '.join(names))}\\fR", prose_of(text))
        for section in sections(member, "return"):
            tell(page, section, "Result:")
        page.code(macro(header, member) if member.kind == "define" else member.declaration + ";")


def members(page, header):
    """The reference: what is no function first, then the functions by group."""
    rest = [group for group in header.groups if any(m.kind != "function" for m in group.members)]
    if rest:
        page.section("CONSTANTS, TYPES AND OBJECTS")
        for group in rest:
            if group.title and plain(group.description) and not any(m.kind == "function" for m in group.members):
                page.paragraph(f"{escaped(group.title)}: " + prose_of(group.description))
            other_members(page, header, group)
    for group in header.groups:
        functions = [m for m in group.members if m.kind == "function"]
        if not functions:
            continue
        page.section(group.title.upper() if group.title else "FUNCTIONS")
        description(page, group.description)
        for member in functions:
            function(page, member)


def examples(page, header):
    page.section("EXAMPLES")
    for example in contents.FAMILIES[header.name]:
        with open(f"examples/{example}.c", encoding="utf-8") as source:
            program = source.read()
        with open(f"examples/expected/{example}.txt", encoding="utf-8") as output:
            said = output.read()
        page.paragraph(f"\\fI{escaped(example)}.c\\fR:")
        page.code(re.sub(r"^/\* SPDX.*\n", "", program))
        page.paragraph("It says" + (", with \\fI<any>\\fR for any text:" if "<any>" in said else ":"))
        page.code(said)


def references(header, headers):
    """The pages of the families that a header speaks of."""
    own = set()
    for member in header.members():
        own.add(member.name)
    names = {}
    for other in headers.values():
        for member in other.members():
            names[member.name] = other.name
    text = " ".join([plain(header.details)] + [plain(m.details) + " " + plain(m.brief) for m in header.members()])
    found = {names[word] for word in re.findall(r"\w+", text) if word in names and word not in own}
    found |= set(re.findall(r"\b(\w+)\.h\b", text)) & set(headers)
    return sorted(page_name(other) for other in found - {header.name} - set(contents.SHARED))


def see_also(page, names):
    page.section("SEE ALSO")
    page.raw(*(f"\\fB{escaped(name)}\\fR(3)" + ("," if name != names[-1] else "") for name in names))


def head(name, about, version, date):
    page = Page()
    page.raw("'\\\" t", ".\\\" SPDX-License-Identifier: MIT", ".\\\" Made from the headers by tools/docs/build.",
             f".TH {quoted(name)} 3 {date} {quoted('libvexadm ' + version)} {quoted('libvexadm')}",
             ".ad l", ".nh")  # names stay whole
    page.section("NAME")
    page.raw(f"{escaped(name)} \\- {escaped(about)}")
    return page


def about(header):
    text = plain(header.brief).rstrip(".")
    if not re.match(r"[A-Z]{2}|\w*_", text):
        text = text[0].lower() + text[1:]
    return re.sub(r"^(the|an|a) ", "", text)


def family(header, headers, version, date):
    page = head(page_name(header.name), about(header), version, date)
    synopsis(page, header)
    page.section("DESCRIPTION")
    page.paragraph(prose_of(header.brief))
    description(page, header.details)
    members(page, header)
    examples(page, header)
    see_also(page, ["libvexadm"] + references(header, headers))
    return page


def readme_table(title):
    """The first table below a heading of the README, cells as plain text."""
    with open(README, encoding="utf-8") as readme:
        below = readme.read().split(f"\n## {title}\n")[1].split("\n## ")[0]
    rows = [line.strip("|").split("|") for line in below.split("\n") if line.startswith("|")]
    return [[re.sub(r"[`*]|\[([^\]]*)\]\([^)]*\)", r"\1", cell).strip() for cell in row]
            for row in rows if not re.fullmatch(r"[-|: ]+", "|".join(row))]


def overview(headers, version, date):
    page = head("libvexadm", "settings store and toolbox of a router", version, date)
    page.section("SYNOPSIS")
    page.raw(".nf", "\\fB#include <vexadm/vexadm.h>\\fR", ".PP", "cc my_daemon.c $(pkg\\-config \\-\\-cflags \\-\\-libs vexadm)", ".fi")
    page.fresh = False
    page.section("DESCRIPTION")
    for name in contents.SHARED:
        page.paragraph(prose_of(headers[name].brief))
        description(page, headers[name].details)
    page.section("FAMILIES")
    page.table([["Page", "What it is about"]] +
               [[f"{escaped(page_name(name))}(3)", escaped(about(headers[name]))] for name in contents.FAMILIES])
    page.section("CONSTANTS")
    for name in contents.SHARED:
        for group in headers[name].groups:
            other_members(page, headers[name], group)
    page.section("FILES")
    for path, what in readme_table("Where data lives")[1:]:
        page.tagged(f"\\fI{escaped(path)}\\fR", escaped(what))
    page.section("FUNCTIONS")
    page.paragraph("Every function, and the page that describes it.")
    functions = sorted(((member.name, name) for name in contents.FAMILIES
                        for member in headers[name].members("function")), key=lambda pair: pair[0].lower())
    page.table([["Function", "Page"]] + [[f"{escaped(function_name)}()", f"{escaped(page_name(name))}(3)"]
                                         for function_name, name in functions])
    see_also(page, [page_name(name) for name in contents.FAMILIES])
    return page


def date_of_version():
    """The day of the version's entry in the changelog: the same whenever the pages are made."""
    with open("packaging/debian/changelog", encoding="utf-8") as changelog:
        line = next(line for line in changelog if line.startswith(" -- "))
    return email.utils.parsedate_to_datetime(line.split(">  ")[1].strip()).date().isoformat()


def write_all(folder, headers, version):
    os.makedirs(folder, exist_ok=True)
    for old in os.listdir(folder):
        os.remove(os.path.join(folder, old))
    date = date_of_version()
    made = {page_name(name): family(headers[name], headers, version, date) for name in contents.FAMILIES}
    made["libvexadm"] = overview(headers, version, date)
    for name, page in made.items():
        with open(os.path.join(folder, f"{name}.3"), "w", encoding="ascii") as file:
            file.write("\n".join(page.lines) + "\n")


def check(folder):
    """Two formatters have nothing to say about the pages."""
    said = ""
    for file in sorted(os.listdir(folder)):
        for command in ["groff", "-t", "-man", "-ww", "-Tutf8", "-z"], ["mandoc", "-Tlint", "-Wwarning"]:
            ran = subprocess.run(command + [file], cwd=folder, text=True, stdout=subprocess.PIPE,
                                 stderr=subprocess.STDOUT, check=False)
            if ran.stdout or ran.returncode:
                said += f"{' '.join(command)} {file} ended with {ran.returncode}\n{ran.stdout}"
    if said:
        raise Fault(said)
