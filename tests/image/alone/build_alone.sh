#!/usr/bin/env bash
# build_alone.sh ROOT: copies the codec out of the tree, builds it there and runs a picture through it.
set -euo pipefail
root=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir "$work/src"
cp -r "$root/src/image" "$work/src/image"
cp -r "$root/cmake" "$root/tests/image/alone/." "$work/"
# Several sources at a time, without optimisation: half of the time.
cmake -G Ninja -S "$work" -B "$work/build" -DCMAKE_BUILD_TYPE= -DCMAKE_UNITY_BUILD=ON >"$work/log" 2>&1 &&
    cmake --build "$work/build" >>"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
"$work/build/recode"
