#!/usr/bin/env python3
"""Holds what the libraries show against what they have promised.

    interface.py check  --build DIR     DIR is a build of the preset release
    interface.py update --build DIR     takes over what they show now, when it changed on purpose

What a library promises stands in two files: its version script (LIBRARY.map, the symbols), and a description of their
types as abidw writes it, below tests/abi/, where another one holds the contract of src/interfaces.
docs/compatibility.md says which changes need a new SONAME.
"""

import argparse
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
KEPT = os.path.join(ROOT, "tests", "abi")
HEADERS = os.path.join(ROOT, "packaging", "headers.list")
PUBLIC, PRIVATE = "MORROW_1", "MORROW_PRIVATE"

# Library -> its version script, and the objects that may show symbols. Only the public ones are described: the private
# node is for the programs of the same version. The script of the C library takes the names of its header as a pattern; the
# component is found by its path and shows four plain functions.
LIBRARIES = {
    "libmorrowplatform.so.1": ("platform/morrowplatform.map", ["platform/CMakeFiles/morrowplatform.dir"]),
    "libmorrowkit.so.1": ("kit/morrowkit.map", ["kit/CMakeFiles/morrow_kit.dir", "src/image/CMakeFiles/morrow_image.dir"]),
    "libmorrowstream.so.1": ("src/runtime/module/exports.map", []),
    "libmorrowstream-c.so.1": ("capi/morrowstream-c.map", []),
}
C_HEADER = "capi/morrowstream.h"

# What belongs to the C++ library and the system is theirs to promise.
SUPPRESSED = r"""
[suppress_type]
  name_regexp = ^(std::|__gnu_cxx::|__|_|pthread|mbstate|lconv|timespec)
  drop = true
[suppress_function]
  name_regexp = ^(std::|__gnu_cxx::)
  drop = true
"""


def run(*command, good=(0,)):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=100, check=False)
    if result.returncode not in good:
        raise SystemExit(f"{' '.join(command)}: status {result.returncode}\n{result.stdout}")
    return result


def public_headers():
    """As they are installed, each with the file of the repository."""
    with open(HEADERS, encoding="utf-8") as file:
        for header in file.read().split():
            yield header, os.path.join(ROOT, "src" if header.startswith(("interfaces/", "image/")) else "", header)


def read_map(path):
    """Symbol -> node."""
    with open(path, encoding="utf-8") as file:
        text = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)
    symbols = {}
    if "morrow_*;" in text:
        with open(os.path.join(ROOT, C_HEADER), encoding="utf-8") as file:
            header = re.sub(r"/\*.*?\*/", "", file.read(), flags=re.S)
        names = re.findall(r"^MORROW_API.*?\b(morrow_\w+)\(", header, flags=re.M)
        text = text.replace("morrow_*;", "".join(name + ";" for name in names))
    for node, body in re.findall(r"(\w*)\s*\{(.*?)\}", text, flags=re.S):
        for name in re.findall(r"(\w+)\s*;", re.sub(r"\blocal:.*", "", body, flags=re.S).replace("global:", "")):
            symbols[name] = node
    return symbols


def shown_by(library):
    symbols = {}
    for line in run("nm", "-D", "--defined-only", library).stdout.splitlines():
        kind, name = line.split()[-2:]
        name, _, node = name.partition("@@")
        if kind != "A":  # the node itself
            symbols[name] = node
    return symbols


def visible_in(build, folders):
    """What the objects would show without a version script, but for what every user of a template makes again."""
    names = set()
    with open(os.path.join(build, "build.ninja"), encoding="utf-8") as file:
        rules = file.read()  # a folder may hold objects of sources that are gone
    for folder in folders:
        objects = sorted({os.path.join(build, name) for name in re.findall(rf"{folder}/\S+\.o\b", rules)})
        for line in run("readelf", "--syms", "--wide", *objects).stdout.splitlines():
            fields = line.split()
            if len(fields) == 8 and fields[4] in ("GLOBAL", "WEAK") and fields[5] == "DEFAULT" and fields[6] != "UND":
                names.add((fields[4], fields[7]))
    # Tables of classes are weak where they are named before their class is complete.
    names = {name for binding, name in names if binding == "GLOBAL" or re.match(r"_ZT[ISV]N?(3kit|8platform)", name)}
    return {name for name in names if not re.match(r"_ZT[ISV]N3kit11FramePacker6Stream|_ZNK?3kit11FramePacker6Stream", name)}


def public_names(names):
    """Those of `names` whose last part, or whose class, stands in a public header."""
    words, classes = set(), set()
    for _, path in public_headers():
        with open(path, encoding="utf-8") as file:
            text = re.sub(r"//.*", "", file.read())
        words |= set(re.findall(r"\w+", text))
        classes |= set(re.findall(r"\b(?:class|struct)\s+(?:MORROW_\w+\s+|__attribute__\(\(.*\)\)\s+)?(\w+)\s+(?:final )?[:{]", text))
    demangled = run("c++filt", *names).stdout.splitlines()
    public = set()
    for name, text in zip(names, demangled):
        text = re.sub(r"^(typeinfo|typeinfo name|vtable) for ", "", re.sub(r"\[abi:cxx11\]|\(.*", "", text))
        parts = [part.lstrip("~") for part in text.split("::") if part not in ("platform", "kit")]
        if set(parts[:-1]) <= classes and (parts[-1] in words or "operator" in parts[-1]):
            public.add(name)
    return public


def write_map(path, names):
    with open(path, encoding="utf-8") as file:
        comment = re.match(r"/\*.*?\*/\n", file.read(), flags=re.S)
    public = public_names(sorted(names))
    text = comment[0] if comment else ""
    for node, members in ((PUBLIC, public), (PRIVATE, names - public)):
        if members:
            text += f"{node} {{\n    global:\n" + "".join(f"        {name};\n" for name in sorted(members))
            text += ("    local:\n        *;\n" if node == PUBLIC else "") + "};\n"
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def remove(tree, is_needless):
    for owner in list(tree.iter()):
        if owner.tag == "member-function":  # which stays or goes as a whole
            continue
        for child in list(owner):
            if is_needless(child):
                owner.remove(child)


def is_nobodys(element, public):
    """What no program calls in the library: functions that each compiles for itself, and those that are not public."""
    if element.tag == "elf-symbol":
        return element.get("name") not in public
    function = element.find("function-decl") if element.tag == "member-function" else element
    symbol = re.sub("@.*", "", function.get("elf-symbol-id", ""))
    return function.tag == "function-decl" and symbol not in public and not element.get("vtable-offset")


def remove_unreached(tree):
    """Takes out the types that no symbol leads to."""
    owners = {child: owner for owner in tree.iter() for child in owner}
    by_id = {element.get("id"): element for element in tree.iter() if element.get("id")}
    reached, pending = set(), [element for element in tree.iter() if element.get("elf-symbol-id")]
    while pending:
        element = pending.pop()
        while element is not None and element not in reached:
            reached.add(element)
            for part in element.iter():
                reached.add(part)
                pending += [by_id[part.get(name)] for name in ("type-id", "naming-typedef-id") if part.get(name) in by_id]
            element = owners.get(element)
            while element is not None and element.tag not in ("class-decl", "union-decl"):
                reached.add(element)
                element = owners.get(element)
    remove(tree, lambda element: element.get("id") and element not in reached)


def contract_library(headers, folder):
    """A library with one function that takes all of the contract, which the libraries themselves need in parts alone."""
    names, includes = [], []
    for path in sorted(glob.glob(headers + "/interfaces/*.h")) + [headers + "/platform/com.h"]:
        includes.append(f'#include "{os.path.relpath(path, headers)}"\n')
        space = ""
        with open(path, encoding="utf-8") as file:
            for line in file:
                if found := re.match(r"namespace (\w+) \{|\} // namespace|(?:struct|class) (\w+)(?: final)?(?: :.*)? \{", line):
                    names += [space + found[2]] if found[2] else []
                    space = space if found[2] else f"{found[1]}::" if found[1] else ""
    plain = [name for name in names if not name.startswith("platform::")]
    source = os.path.join(folder, "contract.cpp")
    with open(source, "w", encoding="utf-8") as file:
        file.write("".join(includes) + f'extern "C" void Contract({", ".join(name + "*" for name in plain)}) {{}}\n')
    run("g++", "-std=c++20", "-g", "-femit-class-debug-always", "-shared", "-fPIC", "-I" + headers, "-o", folder + "/contract", source)
    return folder + "/contract", {"Contract"}


def describe(library, public, headers, folder):
    """The description of the public symbols and their types, without what no symbol needs."""
    with open(folder + "/suppressed", "w", encoding="utf-8") as file:
        file.write(SUPPRESSED)
    out = os.path.join(folder, os.path.basename(library) + ".abi")
    run("abidw", "--no-corpus-path", "--no-comp-dir-path", "--no-show-locs", "--drop-undefined-syms", "--drop-private-types",
        "--headers-dir", headers, "--suppressions", folder + "/suppressed",
        "--out-file", out, library)
    tree = ElementTree.parse(out)
    remove(tree, lambda element: is_nobodys(element, public))
    remove_unreached(tree)
    for number, unit in enumerate(tree.iter("abi-instr")):
        unit.set("path", str(number))  # how sources are put together is no matter
    ElementTree.indent(tree, " ")
    tree.write(out, encoding="unicode")
    return out


def lay_out_headers(folder):
    for header, path in [*public_headers(), (os.path.basename(C_HEADER), os.path.join(ROOT, C_HEADER))]:
        target = os.path.join(folder, header)
        os.makedirs(os.path.dirname(target), exist_ok=True)
        os.symlink(path, target)
    return folder


def compare(kept, now):
    result = run("abidiff", "--no-show-locs", kept, now, good=range(256))
    return result.stdout if result.returncode else ""


def check(build, update):
    wrong = []
    if update:
        for name, (script, objects) in LIBRARIES.items():
            if objects:
                write_map(os.path.join(ROOT, script), visible_in(build, objects))
    with tempfile.TemporaryDirectory() as folder:
        headers = lay_out_headers(folder + "/include")
        described = []
        for name, (script, objects) in LIBRARIES.items():
            library, script = os.path.join(build, "lib", name), os.path.join(ROOT, script)
            if not os.path.exists(script):
                continue
            if objects:
                visible = visible_in(build, objects)
                for symbol in sorted(visible ^ set(read_map(script))):
                    wrong.append(f"{symbol} is " + ("visible, but not listed" if symbol in visible else "listed, but not visible")
                                 + f": {script}")
            listed, shown = read_map(script), shown_by(library)
            if update and listed != shown:
                return [f"{name}: the list is new; build it again, and update once more"]
            for symbol in sorted(set(listed.items()) ^ set(shown.items())):
                wrong.append(f"{name}: {symbol[0]} {symbol[1]} " + ("is not listed" if symbol in shown.items() else "is not shown"))
            if name != "libmorrowstream.so.1":
                described.append((library, {symbol for symbol, node in listed.items() if node != PRIVATE}))
        for library, public in [*described, contract_library(headers, folder)]:
            kept = os.path.join(KEPT, os.path.basename(library) + ".abi")
            now = describe(library, public, headers, folder)
            if update:
                shutil.move(now, kept)
            elif changes := compare(kept, now):
                wrong.append(f"{os.path.basename(library)} is not what {os.path.relpath(kept, ROOT)} describes:\n{changes}")
    return wrong


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("command", choices=("check", "update"))
    parser.add_argument("--build", required=True)
    arguments = parser.parse_args()
    wrong = check(arguments.build, arguments.command == "update")
    for line in wrong:
        print(line)
    if wrong and arguments.command == "check":
        print("If that is meant: docs/compatibility.md says what it asks for, and\n"
              f"  tests/abi/interface.py update --build {os.path.relpath(arguments.build)}\ntakes it over.")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
