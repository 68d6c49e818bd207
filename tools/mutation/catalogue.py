# SPDX-License-Identifier: MIT
"""A copy of the library's sources in which every mutation waits for its number to be chosen."""
import hashlib
import json
import os

from clang import cindex

from mutation.source import Finder, one_line

ROOMS = ("vexa-app-utils", "vexa-app-os-al", "vexa-app-common/src")
FLAGS = ["-std=c++20", "-D_GNU_SOURCE", "-fno-exceptions", "-fno-rtti"]

PRELUDE = """// Seen by every source of the mutation build before its first line.
#pragma once
#include <signal.h>
#include <stdlib.h>
// A mutant may go on with the -1 of a failed fork, and -1 is every process of the machine.
#define kill(process, number) ((process) == -1 ? abort() : (void)0, kill(process, number))
extern "C" {
__attribute__((visibility("hidden"))) extern bool vexa_mutant_active;
__attribute__((visibility("hidden"))) bool vexa_mutant_chosen(int number);
}
// What the compiler computes is never mutated: constants, array sizes and case labels stay.
constexpr bool vexa_mutant(int number) {
  if (__builtin_is_constant_evaluated()) return false;
  return __builtin_expect(vexa_mutant_active, 0) && vexa_mutant_chosen(number);
}
template <typename Element, int kCount>
constexpr auto vexa_lanes(Element value) {
  typedef Element Vector __attribute__((vector_size(kCount * sizeof(Element))));
  return Vector{} + value;
}
"""

RUN_TIME = """#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

bool vexa_mutant_active = false;
static int chosen = 0;
static char* reached = nullptr;

// VEXA_MUTANT chooses; VEXA_MUTANT_REACHED names a file with one byte for each number.
__attribute__((constructor(101))) static void choose() {
  if (const char* number = getenv("VEXA_MUTANT")) chosen = atoi(number);
  if (const char* path = getenv("VEXA_MUTANT_REACHED")) {
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    void* bytes = fd < 0 ? MAP_FAILED : mmap(nullptr, @SIZE@, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (bytes != MAP_FAILED) reached = static_cast<char*>(bytes);
    if (fd >= 0) close(fd);
  }
  vexa_mutant_active = chosen != 0 || reached != nullptr;
}

bool vexa_mutant_chosen(int number) {
  if (reached != nullptr) reached[number] = 1;
  return number == chosen;
}
"""


class Mutant:
    """One change of one place."""

    def __init__(self, fields):
        self.__dict__.update(fields)


def sources(root):
    found = []
    for room in ROOMS:
        for directory, _, names in os.walk(os.path.join(root, room)):
            found += [os.path.join(directory, name) for name in names if name.endswith((".cpp", ".h"))]
    return sorted(os.path.relpath(path, root) for path in found)


def find(root):
    """Finders with their sites, by file name. A header is read where a source includes it."""
    names = sources(root)
    finders = {name: Finder(name, os.path.join(root, name)) for name in names}
    index = cindex.Index.create()
    flags = FLAGS + [f"-I{root}/{room}" for room in ("include",) + ROOMS]
    for name in names:
        if not name.endswith(".cpp"):
            continue
        unit = index.parse(os.path.join(root, name), flags)
        errors = [str(d) for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            raise SystemExit(f"mutants: {name} does not parse:\n" + "\n".join(errors))
        included = {os.path.relpath(i.include.name, root) for i in unit.get_includes()}
        for file in {name} | included & set(names):
            finders[file].scan(unit)
    return finders


def number(finders):
    """Gives each mutant its number, and a key that outlives changes elsewhere in its file."""
    mutants, keys = [], {}
    for name, finder in sorted(finders.items()):
        for site in sorted(finder.sites.values(), key=lambda s: (s.start, -s.end, s.statement)):
            original = one_line(finder.text[site.start:site.end])
            site.numbered = []
            for operator, form, text in site.mutants:
                shown = {"instead": text, "not": f"!({original})", "drop": "(nothing)",
                         "return": "return {};"}[form]
                seed = "|".join((name, operator, original, shown))
                keys[seed] = keys.get(seed, 0) + 1
                key = hashlib.sha256(f"{seed}|{keys[seed]}".encode("latin-1")).hexdigest()[:8]
                mutant = Mutant({"id": len(mutants) + 1, "key": key, "file": name,
                                 "line": finder.text.count("\n", 0, site.start) + 1,
                                 "operator": operator, "original": original, "mutated": shown})
                mutants.append(mutant)
                site.numbered.append((mutant.id, form, text))
    return mutants


def rewritten(finder):
    """The file's text with all its sites. Sites are nested or apart, as the syntax is."""
    order = sorted(finder.sites.values(), key=lambda s: (s.start, -s.end, not s.statement))

    def render(start, end, sites):
        out, position = [], start
        while sites:
            site = sites.pop(0)
            inner = []
            while sites and sites[0].end <= site.end:
                inner.append(sites.pop(0))
            if sites and sites[0].start < site.end:
                raise SystemExit(f"mutants: crossing places in {finder.name} at {site.start}")
            out += [finder.text[position:site.start], place(site, render(site.start, site.end, inner))]
            position = site.end
        return "".join(out) + finder.text[position:end]

    def place(site, text):
        for number_, form, other in site.numbered:
            chosen = f"vexa_mutant({number_})"
            if form == "instead":
                text = f"({chosen} ? ({other}) : ({text}))"
            elif form == "not":
                text = f"({chosen} != static_cast<bool>({text}))"
            elif form == "drop":
                text = f"{{ if (!{chosen}) {{ {text} }} }}"
            else:
                text = f"{{ if ({chosen}) return {{}}; {text} }}"
        return f"vexa_lanes<{site.lanes}>({text})" if site.lanes else text

    return render(0, len(finder.text), order)


def put(path, text):
    """Writes a file, or leaves it alone where nothing changes, so that only what changed is built."""
    os.makedirs(os.path.dirname(path), exist_ok=True)
    if os.path.exists(path):
        with open(path, encoding="latin-1") as file:
            if file.read() == text:
                return
    with open(path, "w", encoding="latin-1") as file:
        file.write(text)


def write(root, target):
    """Writes the mutated tree and its catalogue; answers the mutants."""
    finders = find(root)
    mutants = number(finders)
    tree = os.path.join(target, "src")
    wanted = {name: rewritten(finder) for name, finder in finders.items()}
    wanted[os.path.join(ROOMS[0], "mutant.cpp")] = RUN_TIME.replace("@SIZE@", str(len(mutants) + 1))
    for name in sources(tree):
        if name not in wanted:
            os.unlink(os.path.join(tree, name))
    for name, text in wanted.items():
        put(os.path.join(tree, name), text)
    put(os.path.join(target, "mutant.h"), PRELUDE)
    put(os.path.join(target, "catalogue.json"), json.dumps([vars(mutant) for mutant in mutants], indent=0))
    return mutants


def read(target):
    with open(os.path.join(target, "catalogue.json"), encoding="utf-8") as file:
        return [Mutant(fields) for fields in json.load(file)]
