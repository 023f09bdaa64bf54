#!/usr/bin/env python3
"""The preset "fuzz" works with the clang of this system.

    test_preset.py SOURCES BUILD

Configures it into BUILD, looks whether it has the targets, and runs one of three lines. Building a real one takes
minutes, and clang reads them for the tests' build."""

import json
import os
import shlex
import subprocess
import sys
import tempfile

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


def main():
    sources, build = map(os.path.abspath, sys.argv[1:])
    run("cmake", "--preset", "fuzz", "-B", build, folder=sources)
    with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
        commands = json.load(file)
    targets = [entry for entry in commands if "fuzzer-no-link" in entry["command"] and "/fuzz/" in entry["file"]]
    if len(targets) < 12:
        raise SystemExit(f"only {len(targets)} sources of targets that libFuzzer can follow")
    program = os.path.join(build, "three_lines")
    run("clang++", "-std=c++20", "-I" + sources, "-fsanitize=address,undefined,fuzzer", "-x", "c++", "-", "-o", program,
        folder=build, text=TARGET)
    with tempfile.TemporaryDirectory() as found:
        said = subprocess.run([program, "-runs=1000000", "-seed=1"], cwd=found, capture_output=True, text=True, check=False)
    if said.returncode == 0 or "-:3: violated: it greets" not in said.stderr.replace("<stdin>", "-"):
        raise SystemExit(f"the target ended with {said.returncode}:\n{said.stderr[-2000:]}")


main()
