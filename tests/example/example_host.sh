#!/usr/bin/env bash
# The example of docs/integrator.md: it takes a phone's pictures, turns a stranger away, and ends in order.
#
#   example_host.sh HOST PHONE PICTURES
set -euo pipefail
source="$(dirname "${BASH_SOURCE[0]}")/../../docs"
host=$1 phone=$2 pictures=$3
work="$(mktemp -d)"
mkdir "$work/data"
"$host" "$work/data" 0 > "$work/log" 2>&1 &
process=$!
trap 'kill "$process" 2>/dev/null || true; rm -rf "$work"' EXIT

fail() {
    echo "example_host: $1" >&2
    cat "$work/log" >&2
    exit 1
}

# Every line of code in the text is one of the program that is built.
while IFS= read -r line; do
    grep -qxF -- "$line" "$source/example-host/main.cpp" || fail "docs/integrator.md shows what the example has not: $line"
done < <(sed -n '/^```cpp$/,/^```$/{/^```/!p}' "$source/integrator.md")

address=""
for _ in $(seq 300); do
    address="$(sed -n 's/^listening on //p' "$work/log")"
    [[ -z $address ]] || break
    kill -0 "$process" 2>/dev/null || fail "it ended before it listened"
    sleep 0.1
done
[[ -n $address ]] || fail "it does not listen"
if "$phone" upload --server "$address" --login door --password wrong --pictures "$pictures" --frames 1 > "$work/denied" 2>&1; then
    fail "a wrong password was let in"
fi
"$phone" upload --server "$address" --login door --password secret --pictures "$pictures" --frames 5 --fps 50 || fail "the phone was not served"
for _ in $(seq 100); do
    [[ $(grep -c 'door.pgm 320x240$' "$work/log") == 5 ]] && break
    sleep 0.1
done
[[ $(grep -c 'door.pgm 320x240$' "$work/log") == 5 ]] || fail "not every picture arrived"
# An independent program reads the picture.
cjpeg -grayscale -outfile "$work/door.jpg" "$work/data/door.pgm" || fail "the picture is none"
djpeg -pnm -outfile "$work/door.pnm" "$work/door.jpg"
[[ "$(head -c 11 "$work/door.pnm" | tr '\n' ' ')" == "P5 320 240 "* ]] || fail "the picture has another size"
kill -INT "$process"
wait "$process" || fail "it ended with status $?, with the module still loaded"
