# SPDX-License-Identifier: MIT
"""The pages of the site: Markdown files as Doxygen takes them, families' examples, and the navigation."""
import html
import os
import posixpath
import re

import contents
from faults import Fault

RULE = re.compile(r"\|[-:| ]+\|")  # of a table
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
    return contents.GUIDE + contents.PROJECT


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


def prose(text, source, known):
    """A paragraph: links lead to pages, and what means something to Doxygen alone means nothing."""
    pieces = re.split(r"(`[^`]*`)", text)
    for i, piece in enumerate(pieces):
        if i % 2 == 0:
            pieces[i] = re.sub(r"\\(?=\w)|[%@&](?=\w)|(?<!-)--(?!-)", lambda found: "\\" + found.group(), piece)
        else:
            piece = piece.replace("\n", " ")
            pieces[i] = f"`{piece}`" if "'" in piece else piece  # an apostrophe would end the code
    return LINK.sub(lambda found: f"[{found.group(1)}]({target(found.group(2), source, known)})", "".join(pieces))


def shown(lines, i, source):
    """The block of code below a comment that names an example has to be a piece of that example."""
    name = SHOWN.match(lines[i]).group(1)
    if lines[i + 1] != "```c":
        raise Fault(f"{source}:{i + 1}: no block of code below the name of {name}")
    block = "\n".join(lines[i + 2:lines.index("```", i + 2)]) + "\n"
    with open(name, encoding="utf-8") as example:
        if block not in example.read():
            raise Fault(f"{source}:{i + 2}: this is no piece of {name}")


def heading(line, path, known, names):
    """A heading with the name by which links reach it."""
    marks, title = HEADING.match(line).groups()
    name = page_id(path)
    if marks == "#" and not names:
        anchor = "mainpage" if name == "index" else name
    else:
        anchor = f"{name}-{slug(title)}"
    if anchor in names:
        raise Fault(f"{path}: a second heading of the name {title}")
    names.add(anchor)
    return f"{marks} {prose(title.replace('`', ''), path, known)} {{#{anchor}}}"  # no code in a title


def markdown(path):
    """A page of the repository as Doxygen takes it: named headings, links between pages."""
    known = {page for _, page in all_pages()}
    with open(path, encoding="utf-8") as source:
        lines = source.read().split("\n")
    result, paragraph, names = [], [], set()

    def end_paragraph():
        if paragraph:
            result.append(prose("\n".join(paragraph), path, known))
            paragraph.clear()

    code = False
    for i, line in enumerate(lines):
        fence = line.startswith("```")
        plain = not (code or fence or RULE.fullmatch(line) or HEADING.match(line) or SHOWN.match(line))
        if plain and line.strip() and not line.startswith("    "):
            paragraph.append(line)
            continue
        end_paragraph()
        if fence:
            code = not code
            # Highlighted as what it is, or not at all.
            line = "```{.c}" if line == "```c" else "```{.unparsed}" if code else "```"
        elif not code and SHOWN.match(line):
            shown(lines, i, path)
            continue
        elif not code and HEADING.match(line):
            line = heading(line, path, known, names)
        result.append(line)
    end_paragraph()
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
    """All names, with the header of each; a hash before a name, or brackets behind it, make a link of it."""
    names = {}
    for header in headers.values():
        for member in header.members():
            mark = {"function": "{}()", "record": "{}"}.get(member.kind, "#{}")
            for name in [member.name] + [part.name for part in member.parts if part.kind == "enumerator"]:
                if not name.startswith("@"):  # an enumeration without a name is found by its values
                    names[name] = (mark.format(name), header.name)
    lines = ["# Index of names {#names}", "", "| name | header |", "|---|---|"]
    for name in sorted(names, key=lambda text: (text.lower(), text)):
        link, header = names[name]
        lines.append(f"| {link} | [vexadm/{header}.h]({header_page(header)}.html) |")
    return "\n".join(lines) + "\n"


def check_families():
    """Every header has a page with an example, and every example is shown."""
    headers = {file[:-2] for file in os.listdir("include/vexadm") if file.endswith(".h")}
    listed = set(contents.FAMILIES) | set(contents.SHARED)
    for name in sorted(headers - listed):
        raise Fault(f"include/vexadm/{name}.h has no page: list it in tools/docs/contents.py")
    for name in sorted(listed - headers):
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
    text = re.sub(r"(?<![/\w\"])docs/(\w+)\.md\b", r'<a href="\1.html">docs/\1.md</a>', text) if "_8h" in file else text
    # A place that is named by the path of its file, where it was made.
    text = re.sub(r'<a class="anchor" id="md_[^"]*"></a>\s*', "", text)
    # What a script would show beside the pointer, and a choice of headings that stand just below.
    text = re.sub(r'^<div class="ttc".*\n', "", text, flags=re.MULTILINE)
    text = re.sub(r'<div class="summary">.*?</div>', "", text, flags=re.DOTALL)
    # A variable of an example is no field of the same name.
    text = re.sub(r'<a class="code hl_variable"[^>]*>([a-z_]+)</a>', r"\1", text)
    text = re.sub(r"<script.*?</script>", "", text, flags=re.DOTALL)
    text = re.sub(r"<!-- (?:HTML|start|end|contents|fragment|header|doc-content|PageDoc|Generated).*?-->\n?", "", text)
    return text
