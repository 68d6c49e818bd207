# SPDX-License-Identifier: MIT
"""The pages of the site: Markdown files as Doxygen takes them, families' examples, and the navigation."""
import html
import os
import posixpath
import re

import contents
from faults import Fault

FENCE = re.compile(r"^(```|    )")
HEADING = re.compile(r"^(#+) (.*)$")
LINK = re.compile(r"(?<!!)\[([^\]]*)\]\(([^)\s]+)\)")
SHOWN = re.compile(r"^<!-- (examples/\S+) -->$")


def page_id(path):
    """The name of a page's file on the site, without .html."""
    if path == "README.md":
        return "index"
    if path == "packaging/README.md":
        return "packaging"
    return posixpath.splitext(posixpath.basename(path))[0].lower()


def header_page(name):
    return name.replace("_", "__") + "_8h"


def slug(title):
    """The name of a heading, as it is made where Markdown is shown in repositories."""
    text = re.sub(r"[`*]", "", title).lower()
    return re.sub(r"[^\w\- ]", "", text).strip().replace(" ", "-")


def all_pages():
    return [(title, path) for title, path in contents.GUIDE + contents.PROJECT
            if path not in contents.OPTIONAL or os.path.exists(path)]


def target(link, source, known):
    """Where a link of a page in the repository leads on the site."""
    path, _, anchor = link.partition("#")
    if re.match(r"[a-z]+:", link):
        raise Fault(f"{source}: a link leaves the documentation: {link}")
    full = posixpath.normpath(posixpath.join(posixpath.dirname(source), path)) if path else source
    if full in known:
        name = page_id(full)
        return f"{name}.html" + (f"#{name}-{anchor}" if anchor else "")
    header = re.fullmatch(r"include/vexadm/(\w+)\.h", full)
    if header and os.path.exists(full):
        return header_page(header.group(1)) + ".html"
    raise Fault(f"{source}: a link leads to {full}, which has no page")


def prose(line, source, known):
    """A line of text: links lead to pages, and what means something to Doxygen alone means nothing."""
    pieces = re.split(r"(`[^`]*`)", line)
    for i in range(0, len(pieces), 2):
        pieces[i] = re.sub(r"\\(?=\w)|[%@&](?=\w)|--(?!-)(?<!---)", lambda found: "\\" + found.group(), pieces[i])
    for i in range(1, len(pieces), 2):
        if "'" in pieces[i]:  # an apostrophe would end the code
            pieces[i] = f"`{pieces[i]}`"
    text = "".join(pieces)
    return LINK.sub(lambda found: f"[{found.group(1)}]({target(found.group(2), source, known)})", text)


def shown(lines, i, source):
    """The block of code below a comment that names an example has to be a piece of that example."""
    name = SHOWN.match(lines[i]).group(1)
    if lines[i + 1] != "```c":
        raise Fault(f"{source}:{i + 1}: no block of code below the name of {name}")
    block = "\n".join(lines[i + 2:lines.index("```", i + 2)]) + "\n"
    with open(name, encoding="utf-8") as example:
        if block not in example.read():
            raise Fault(f"{source}:{i + 2}: this is no piece of {name}")


def markdown(path):
    """A page of the repository as Doxygen takes it: named headings, links between pages."""
    known = {page for _, page in all_pages()}
    with open(path, encoding="utf-8") as source:
        lines = source.read().split("\n")
    name = page_id(path)
    result, code, titled, names = [], False, False, set()
    for i, line in enumerate(lines):
        if line.startswith("```"):
            code = not code
            # Highlighted as what it is, or not at all.
            line = "```{.c}" if line == "```c" else "```{.unparsed}" if code else "```"
        elif not code and SHOWN.match(line):
            shown(lines, i, path)
            continue
        elif not code and HEADING.match(line):
            marks, title = HEADING.match(line).groups()
            if marks == "#" and not titled:
                line, titled = f"# {title} {{#{'mainpage' if name == 'index' else name}}}", True
            else:
                anchor = f"{name}-{slug(title)}"
                if anchor in names:
                    raise Fault(f"{path}:{i + 1}: a second heading of this name")
                names.add(anchor)
                line = f"{marks} {prose(title, path, known)} {{#{anchor}}}"
        elif not code and not line.startswith("    "):
            line = prose(line, path, known)
        result.append(line)
    return "\n".join(result)


def family_page(name, examples):
    """What Doxygen adds to the page of a header: its examples, and what they say."""
    lines = ["/**", f" * @file vexadm/{name}.h"]
    for example in examples:
        lines += [f" * <h2>Example: {example}.c</h2>", f" * @include {example}.c"]
        script = f"examples/run/{example}.sh"
        lines += [" *", " * What it says" + (", started by `" + script + "`" if os.path.exists(script) else "") +
                  ", where <code>\\<any\\></code> stands for any text:" if any_text(example) else " * What it says:"]
        lines += [f" * @verbinclude expected/{example}.txt"]
    return "\n".join(lines + [" */", ""])


def any_text(example):
    with open(f"examples/expected/{example}.txt", encoding="utf-8") as expected:
        return "<any>" in expected.read()


def index_page(headers):
    """All names, with the family of each."""
    names = {}
    for header in headers.values():
        for member in header.members():
            # An enumeration without a name is found by its values.
            for name in [member.name] if not member.name.startswith("@") else []:
                names[name] = header.name
            if member.kind == "enum":
                for part in member.parts:
                    names[part.name] = header.name
    lines = ["# Index of names {#names}", "", "| name | header |", "|---|---|"]
    for name in sorted(names, key=lambda text: (text.lower(), text)):
        lines.append(f"| {name}{'()' if is_function(headers[names[name]], name) else ''} | "
                     f"[vexadm/{names[name]}.h]({header_page(names[name])}.html) |")
    return "\n".join(lines) + "\n"


def is_function(header, name):
    return any(member.name == name for member in header.members("function"))


def check_families(headers):
    """Every header has a page with an example, and every example is shown."""
    listed = set(contents.FAMILIES) | set(contents.SHARED)
    for name in sorted(set(headers) - listed):
        raise Fault(f"include/vexadm/{name}.h has no page: list it in tools/docs/contents.py")
    for name in sorted(listed - set(headers)):
        raise Fault(f"tools/docs/contents.py lists {name}, and there is no such header")
    for name, examples in contents.FAMILIES.items():
        if not examples:
            raise Fault(f"vexadm/{name}.h has no example")
        for example in examples:
            for path in f"examples/{example}.c", f"examples/expected/{example}.txt":
                if not os.path.exists(path):
                    raise Fault(f"the example of vexadm/{name}.h is not there: {path}")
    shown_ones = {example for examples in contents.FAMILIES.values() for example in examples}
    for file in sorted(os.listdir("examples")):
        if file.endswith(".c") and file[:-2] not in shown_ones:
            raise Fault(f"examples/{file} is shown by no family: list it in tools/docs/contents.py")


def navigation():
    """Sections of the navigation: (title, [(text, file)])."""
    def links(pages):
        return [(title, page_id(path) + ".html") for title, path in pages if (title, path) in all_pages()]
    yield "libvexadm", links(contents.GUIDE)
    yield "Families", [(name, header_page(name) + ".html") for name in contents.FAMILIES]
    yield "All of them", ([("Index of names", "names.html")] +
                          [(f"{name}.h", header_page(name) + ".html") for name in contents.SHARED])
    yield "Project", links(contents.PROJECT)


def navigation_html(current):
    lines = []
    for title, links in navigation():
        lines.append(f"<h2>{html.escape(title)}</h2>\n<ul>")
        for text, file in links:
            here = ' aria-current="page"' if file == current else ""
            lines.append(f'<li><a href="{file}"{here}>{html.escape(text)}</a></li>')
        lines.append("</ul>")
    return "\n".join(lines)


def finished(text, file):
    """A page as Doxygen made it, with this project's navigation and titles."""
    text = text.replace("<!-- navigation -->", navigation_html(file))
    text = re.sub(r"(?:vexadm/)?(\w+\.h) File Reference", r"vexadm/\1", text)
    # Where a page stands in the folders of the sources; pages that a header names by their files.
    text = re.sub(r'<div id="nav-path".*?</div>\n', "", text, flags=re.DOTALL)
    text = re.sub(r"(?<![/\w\"])docs/(\w+)\.md\b", r'<a href="\1.html">\1</a>', text) if "_8h" in file else text
    text = re.sub(r"<script.*?</script>", "", text, flags=re.DOTALL)
    text = re.sub(r"<!-- (?:HTML|start|end|contents|fragment|header|doc-content|PageDoc|Generated).*?-->\n?", "", text)
    return text
