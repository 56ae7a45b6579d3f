#!/usr/bin/env bash
# Previews a second that orvante serve draws, and their latency, under a
# bounded load on the loopback: wrk posts a 4 x 6 inch label (five lines
# of text, a Code 128 barcode, a box) to POST /v1/preview from 2 threads
# over 8 connections for 10 seconds (the arguments after the build folder
# replace those settings).
#
#   bench/serve_preview.sh [build-dir] [wrk options...]
set -euo pipefail

build=${1:-build/default}
shift || true
settings=("$@")
[ ${#settings[@]} -gt 0 ] || settings=(-t2 -c8 -d10s)
orvante=$build/tools/orvante/orvante
for tool in "$orvante" wrk curl; do
  command -v "$tool" >/dev/null || { echo "missing: $tool" >&2; exit 1; }
done

work=$(mktemp -d)
trap 'kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; rm -rf "$work"' EXIT

cat >"$work/label.txt" <<'LABEL'
SIZE 101.6 mm, 152.4 mm
GAP 3 mm, 0 mm
CLS
BOX 20,20,792,1198,4
TEXT 50,50,"4",0,1,1,"Orvante Labs Shipping"
TEXT 50,110,"3",0,1,1,"Wang Li"
TEXT 50,150,"3",0,1,1,"42 Harbour Road"
TEXT 50,190,"3",0,1,1,"100000 Beijing"
TEXT 50,230,"2",0,1,1,"Order 2024-000421  2 of 3"
BARCODE 50,300,"128",160,1,0,3,6,"SHIP-000421-0002"
PRINT 1,1
LABEL

"$orvante" serve --listen 127.0.0.1:0 --port-file "$work/port" >/dev/null &
server=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(cat "$work/port")
url="http://127.0.0.1:$port/v1/preview"

# One preview first: the label must draw, or the figures mean nothing.
curl -sf --data-binary @"$work/label.txt" -o "$work/label.png" -D "$work/headers" "$url"
echo "label: $(grep -i '^x-label-count' "$work/headers" | tr -d '\r'), $(wc -c <"$work/label.png") bytes of PNG"

cat >"$work/post.lua" <<LUA
local file = io.open("$work/label.txt", "rb")
wrk.method = "POST"
wrk.body = file:read("*a")
file:close()
wrk.headers["Content-Type"] = "text/plain"
LUA
echo "wrk ${settings[*]} --latency -s post.lua $url"
wrk "${settings[@]}" --latency -s "$work/post.lua" "$url"
