#!/usr/bin/env python3
"""The preset "fuzz" works with the clang of this system, whose standard library may lack what g++ has.

    test_preset.py SOURCES BUILD

Configures it into BUILD, has clang read the sources of all targets, and runs a target of three
lines. Building a real one takes minutes."""

import json
import os
import shlex
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

# The targets. What they link is read by clang for the thread sanitizer's build.
READ = ("fuzz/",)
# Instrumented code is longer, not another language.
LEFT_OUT = ("-fsanitize", "-fno-sanitize", "-O", "-g")
TARGET = """#include "fuzz/Fuzz.h"
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Require(AsText(data, size) != "Hi", "it greets");
    return 0;
}
"""


def run(*command, folder, text=None):
    ended = subprocess.run(command, cwd=folder, input=text, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    if ended.returncode != 0:
        raise SystemExit(f"{shlex.join(command)}\nended with {ended.returncode}:\n{ended.stdout[-8000:]}")


def reads(entry):
    """Has clang read the source of an entry of compile_commands.json."""
    command = shlex.split(entry["command"])
    command = command[next(at for at, word in enumerate(command) if word.endswith("clang++")):command.index("-o")]
    command = [word for word in command if not word.startswith(LEFT_OUT)]
    run(*command, "-fsyntax-only", entry["file"], folder=entry["directory"])


def main():
    sources, build = map(os.path.abspath, sys.argv[1:])
    run("cmake", "--preset", "fuzz", "-B", build, folder=sources)
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        entries = [entry for entry in json.load(file) if os.path.relpath(entry["file"], sources).startswith(READ)]
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        read = list(pool.map(reads, entries))
    if len(read) < 12:
        raise SystemExit(f"only {len(read)} sources")
    program = os.path.join(build, "three_lines")
    run("clang++", "-std=c++20", "-I" + sources, "-fsanitize=address,undefined,fuzzer", "-x", "c++", "-", "-o", program,
        folder=build, text=TARGET)
    with tempfile.TemporaryDirectory() as found:
        said = subprocess.run([program, "-runs=1000000", "-seed=1"], cwd=found, capture_output=True, text=True, check=False)
    if said.returncode == 0 or "-:3: violated: it greets" not in said.stderr.replace("<stdin>", "-"):
        raise SystemExit(f"the target ended with {said.returncode}:\n{said.stderr[-2000:]}")


main()
