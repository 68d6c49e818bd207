# SPDX-License-Identifier: MIT
"""The public headers as Doxygen's XML has them: families, their members, and what is not described."""
import dataclasses
import glob
import os
import re
import xml.etree.ElementTree as ElementTree

EMPTY = ElementTree.Element("detaileddescription")


def plain(element):
    """The text of an element, without markup and line ends."""
    return re.sub(r"\s+", " ", "".join(element.itertext())).strip() if element is not None else ""


def found_or_empty(element):
    return EMPTY if element is None else element


@dataclasses.dataclass
class Member:
    """A function, an object, a macro, an enumeration, a callback type or a record."""
    kind: str
    name: str
    line: int
    brief: ElementTree.Element
    details: ElementTree.Element
    declaration: str = ""
    arguments: list = dataclasses.field(default_factory=list)  # (type, name)
    result: str = ""
    body: tuple = (0, 0)  # first and last line in the header
    parts: list = dataclasses.field(default_factory=list)  # enumerators, or fields of a record

    def described(self):
        return bool(plain(self.brief) or plain(self.details))


@dataclasses.dataclass
class Group:
    """Members below one line of dashes; the first group of a header may have no title."""
    title: str
    description: ElementTree.Element
    members: list


@dataclasses.dataclass
class Header:
    name: str
    brief: ElementTree.Element
    details: ElementTree.Element
    groups: list

    def members(self, *kinds):
        return [member for group in self.groups for member in group.members
                if not kinds or member.kind in kinds]


def member_of(node):
    location = node.find("location")
    first = int(location.get("bodystart", location.get("line")))
    member = Member(
        kind=node.get("kind"), name=node.findtext("name"), line=int(location.get("line")),
        brief=node.find("briefdescription"), details=node.find("detaileddescription"),
        body=(first, max(first, int(location.get("bodyend", first)))))
    for value in node.findall("enumvalue"):
        member.parts.append(Member("enumerator", value.findtext("name"), member.line,
                                   value.find("briefdescription"), value.find("detaileddescription")))
    if member.kind == "function":
        member.result = plain(node.find("type"))
        for param in node.findall("param"):
            if plain(param.find("type")) not in ("void", "..."):
                member.arguments.append((plain(param.find("type")), param.findtext("declname", ""),
                                         param.findtext("array", "")))
        member.declaration = f"{member.result} {member.name}{node.findtext('argsstring')}"
    elif member.kind == "variable":
        member.declaration = f"{plain(node.find('type'))} {member.name}{node.findtext('argsstring', '')}"
    elif member.kind == "define":
        arguments = [param.findtext("defname", "") for param in node.findall("param")]
        member.declaration = member.name + (f"({', '.join(arguments)})" if arguments else "")
        member.result = node.findtext("initializer", "") or plain(node.find("initializer"))
    elif member.kind == "typedef":
        member.declaration = node.findtext("definition")
    return member


def records(folder):
    """The records, by the header they stand in; those within others are parts of these."""
    found = {}
    for path in sorted(glob.glob(os.path.join(folder, "struct*.xml")) + glob.glob(os.path.join(folder, "union*.xml"))):
        compound = ElementTree.parse(path).getroot().find("compounddef")
        location = compound.find("location")
        record = Member(
            kind="record", name=compound.findtext("compoundname"), line=int(location.get("bodystart")),
            brief=compound.find("briefdescription"), details=compound.find("detaileddescription"),
            body=(int(location.get("bodystart")), int(location.get("bodyend"))),
            parts=[member_of(node) for node in compound.iter("memberdef")])
        found.setdefault(os.path.basename(location.get("file")), []).append(record)
    return found


def headers(folder):
    """All headers, by name, from the folder of Doxygen's XML."""
    by_file = records(folder)
    result = {}
    for path in sorted(glob.glob(os.path.join(folder, "*_8h.xml"))):
        compound = ElementTree.parse(path).getroot().find("compounddef")
        file = compound.findtext("compoundname")
        groups = {}
        untitled = Group("", EMPTY, [])
        for section in compound.findall("sectiondef"):
            if section.get("kind") == "user-defined":
                group = Group(section.findtext("header"), found_or_empty(section.find("description")), [])
                groups[group.title] = group
            else:
                group = untitled
            group.members += [member_of(node) for node in section.findall("memberdef")]
        ordered = [untitled] + sorted((group for group in groups.values()), key=lambda g: g.members[0].line)
        for record in by_file.get(file, []):
            if "." in record.name:  # within another one, whose text shows it
                continue
            home = untitled
            for group in ordered[1:]:
                if group.members[0].line < record.line:
                    home = group
            home.members.append(record)
        for group in ordered:
            group.members.sort(key=lambda member: member.line)
        result[os.path.splitext(file)[0]] = Header(
            os.path.splitext(file)[0], compound.find("briefdescription"), compound.find("detaileddescription"),
            [group for group in ordered if group.members])
    return result


def listed(member, kind):
    """The entries of a list of Doxygen's, "param" or "retval": (names, description)."""
    entries = []
    for table in member.details.iter("parameterlist"):
        if table.get("kind") != kind:
            continue
        for item in table.findall("parameteritem"):
            names = [plain(name) for name in item.iter("parametername")]
            entries.append((names, item.find("parameterdescription")))
    return entries


def gaps(header):
    """What a header leaves undescribed, as messages that name its line."""
    def message(member, text):
        return f"include/vexadm/{header.name}.h:{member.line}: {text}"

    if not plain(header.brief):
        yield f"include/vexadm/{header.name}.h:1: the header does not say what it is about"
    for member in header.members():
        if not member.described():
            yield message(member, f"{member.name} is not described")
        for part in member.parts:
            if not part.described() and "::@" not in part.declaration:
                yield message(part, f"{part.name} of {member.name} is not described")
        if member.kind != "function":
            continue
        known = [name for names, _ in listed(member, "param") for name in names]
        for _, name, _ in member.arguments:
            if name not in known:
                yield message(member, f"argument {name} of {member.name} is not described")
        returns = [s for s in member.details.iter("simplesect") if s.get("kind") == "return"]
        if member.result != "void" and not returns and not listed(member, "retval"):
            yield message(member, f"the result of {member.name} is not described")
