# SPDX-License-Identifier: MIT
"""Every link of the site leads somewhere within it, and every anchor is there."""
import html.parser
import os
import urllib.parse

from faults import Fault


class Page(html.parser.HTMLParser):
    """What a page links to, and what can be linked to in it."""

    def __init__(self, text):
        super().__init__()
        self.links, self.anchors, self.scripts = [], set(), 0
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        for key, value in attrs:
            if key in ("href", "src", "data", "action", "srcset", "poster") and value is not None:
                self.links.append(value)
            if key == "id" or (key == "name" and tag == "a"):
                self.anchors.add(value)
        self.scripts += tag == "script"


def check(folder):
    """Raises a Fault that lists what leads nowhere, and pages that nothing leads to."""
    found = {}
    for file in sorted(os.listdir(folder)):
        if file.endswith(".html"):
            with open(os.path.join(folder, file), encoding="utf-8") as page:
                found[file] = Page(page.read())
    faults, reached = [], {"index.html"}
    for file, page in found.items():
        if page.scripts:
            faults.append(f"{file} has a script")
        for link in page.links:
            address = urllib.parse.urlparse(link)
            path = urllib.parse.unquote(address.path) or file
            if address.scheme or address.netloc:
                faults.append(f"{file} links out of the site: {link}")
            elif not os.path.exists(os.path.join(folder, path)):
                faults.append(f"{file} links to {link}, which is not there")
            elif address.fragment and address.fragment not in found[path].anchors:
                faults.append(f"{file} links to {link}, and {path} has no such place")
            if path != file:
                reached.add(path)
    faults += [f"nothing leads to {file}" for file in sorted(set(found) - reached)]
    if faults:
        raise Fault("\n".join(faults))
