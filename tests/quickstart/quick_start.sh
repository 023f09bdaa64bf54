#!/usr/bin/env bash
# Does what the README tells a newcomer to do, and looks at what it promises.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$root/run" --seconds 10 --listen 127.0.0.1:0 --data "$work/data" > "$work/log" 2>&1 &
host=$!

fail() {
    echo "quick_start: $1" >&2
    cat "$work/log" >&2
    kill "$host" 2>/dev/null || true
    exit 1
}

# The address is printed once the host listens; until then there may be something to build.
address=""
for _ in $(seq 600); do
    address="$(sed -n 's,^Open \(http://127\.0\.0\.1:[0-9]*\)/.*,\1,p' "$work/log" | head -n 1)"
    [[ -z $address ]] || break
    kill -0 "$host" 2>/dev/null || fail "./run ended before it listened"
    sleep 1
done
[[ -n $address ]] || fail "./run printed no address"

for _ in $(seq 50); do
    curl --silent --fail --output "$work/yard.jpg" "$address/snapshot/yard.jpg" && break
    sleep 0.1
done
djpeg -outfile "$work/yard.ppm" "$work/yard.jpg" || fail "the snapshot of yard is no JPEG that djpeg reads"
[[ "$(head -c 11 "$work/yard.ppm" | tr '\n' ' ')" == "P6 320 240 "* ]] || fail "the snapshot of yard is not 320x240"
# Read to its end: a reader that goes early would make a failure of curl's.
# The demo's phones start one after the other.
gate=""
for _ in $(seq 50); do
    curl --silent --fail "$address/health" | grep '"name":"gate","type":"160x120","connected":true' > /dev/null && gate=1 && break
    sleep 0.1
done
[[ -n $gate ]] || fail "/health does not show gate connected"
curl --silent --fail "$address/metrics" | grep '^morrowstream_camera_connected{camera="yard"} 1$' > /dev/null ||
    fail "/metrics does not show yard connected"
# A phone of one's own, with the command that stands in the README.
"$root/build/release/bin/morrowstream-phone" upload --server "${address#http://}" --login spare --password demo \
    --pictures "$root/phone/pictures/yard" --fps 5 --frames 5 > "$work/phone" 2>&1 ||
    fail "a phone of one's own is refused: $(cat "$work/phone")"

wait "$host" || fail "./run ended with status $?"
for camera in yard gate; do
    grep -q "^$camera: .* all arrived$" "$work/log" || fail "the summary of $camera does not say that all arrived"
done
# Ten and five pictures a second, within a tenth.
rate() { sed -n "s/^$1  *connected  *\([0-9.]*\) fps.*/\1/p" "$work/log" | tail -n 1; }
awk -v yard="$(rate yard)" -v gate="$(rate gate)" \
    'BEGIN { exit !(yard >= 9 && yard <= 11 && gate >= 4.5 && gate <= 5.5) }' ||
    fail "the rates are off: yard $(rate yard), gate $(rate gate)"
