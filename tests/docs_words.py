#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Every word of a header's comments stands in its manual page and on its page of the site, as often.

usage: docs_words.py HEADER MANUAL_PAGE HTML_PAGE
"""
import collections
import glob
import html
import os
import re
import subprocess
import sys


def counted(text):
    # Full stops are added and left out by Doxygen at the end of what is one sentence.
    return collections.Counter(word.rstrip(".") for word in text.split() if word.rstrip("."))


def of_header(path):
    """The words of the documentation comments, without commands and what only draws."""
    with open(path, encoding="utf-8") as source:
        text = source.read()
    words = collections.Counter()
    for comment in re.findall(r"/\*\*<?(.*?)\*/", text, re.DOTALL):
        comment = re.sub(r"\n\s*\* ?", "\n", comment)
        comment = re.sub(r"^\|[-|:]+\|$", "", comment, flags=re.MULTILINE)
        comment = re.sub(r"^\s*- ", "", comment, flags=re.MULTILINE)
        comment = re.sub(r"@(file \S+|def \w+|return|note|warning)", " ", comment)
        comment = re.sub(r"@(param|retval) +(?:[\w, ]+?  |\S+)", " ", comment)
        words += counted(comment.replace("|", " "))
    return words


def of_manual(path):
    shown = subprocess.run(["mandoc", "-Tascii", "-Owidth=1000", path], text=True, capture_output=True, check=True).stdout
    return counted(re.sub(r".\x08", "", shown).replace("|", " "))


def of_site(path):
    """With the pages of records that have one of their own."""
    text = ""
    for part in [path] + glob.glob(os.path.join(os.path.dirname(path), "struct*.html")):
        with open(part, encoding="utf-8") as page:
            text += page.read().split("<main>")[1]
    text = re.sub(r"<(?:/?(?:td|th|p|li|div|h\d|pre|tr|dd|dt)|br)\b[^>]*>", " ", text)
    return counted(html.unescape(re.sub(r"<[^>]+>", "", text)).replace("|", " "))


def main():
    header, manual, site = sys.argv[1:]
    wanted, failed = of_header(header), False
    for page, found in (manual, of_manual(manual)), (site, of_site(site)):
        lost = {word: count - found[word] for word, count in wanted.items() if found[word] < count}
        if lost:
            print(f"{page} lacks words of {header}: {lost}", file=sys.stderr)
            failed = True
    return failed


if __name__ == "__main__":
    sys.exit(main())
