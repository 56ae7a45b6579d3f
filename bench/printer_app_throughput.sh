#!/usr/bin/env bash
# Labels a minute through orvante-printer-app: a one-page 4 x 6 inch PNG
# label submitted back to back to a virtual printer, and the time from the
# first submission to the last label out of the virtual printer.
#
#   bench/printer_app_throughput.sh [build-dir] [jobs]
set -euo pipefail

build=${1:-build/default}
jobs=${2:-60}
app=$build/tools/printer-app/orvante-printer-app
vprinter=$build/tools/vprinter/orvante-vprinter
for tool in "$app" "$vprinter" ipptool python3; do
  command -v "$tool" >/dev/null || { echo "missing: $tool" >&2; exit 1; }
done

work=$(mktemp -d /tmp/papp-bench-XXXXXX)
cleanup() {
  [ -n "${app_pid:-}" ] && kill "$app_pid" 2>/dev/null && wait "$app_pid" 2>/dev/null || true
  [ -n "${vp_pid:-}" ] && kill "$vp_pid" 2>/dev/null && wait "$vp_pid" 2>/dev/null || true
  [ -n "${KEEP:-}" ] && echo "kept $work" >&2 || rm -rf "$work"
}
trap cleanup EXIT

# The label: white, with a black frame and bars, 812 x 1218 pixels (4 x 6 in at 203 dpi).
python3 - "$work/label.png" <<'PY'
import struct, sys, zlib
w, h = 812, 1218
rows = []
for y in range(h):
    row = bytearray(b'\xff' * w)
    if y < 20 or y >= h - 20:
        row = bytearray(w)
    else:
        row[:20] = bytes(20); row[-20:] = bytes(20)
        if 200 <= y < 600:
            for x in range(100, 700, 16):
                row[x:x + 8] = bytes(8)
    rows.append(b'\x00' + bytes(row))
def chunk(t, d):
    return struct.pack('>I', len(d)) + t + d + struct.pack('>I', zlib.crc32(t + d))
png = b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', w, h, 8, 0, 0, 0, 0))
png += chunk(b'IDAT', zlib.compress(b''.join(rows), 9)) + chunk(b'IEND', b'')
open(sys.argv[1], 'wb').write(png)
PY

mkfifo "$work/control"
"$vprinter" --listen 127.0.0.1:0 --port-file "$work/vport" --out "$work/labels" \
  <"$work/control" >"$work/vprinter.out" &
vp_pid=$!
exec 3>"$work/control"
for _ in $(seq 100); do [ -s "$work/vport" ] && break; sleep 0.05; done
vport=$(cat "$work/vport")

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
TMPDIR=$work HOME=$work "$app" server -o listen-hostname=127.0.0.1 -o server-port="$port" \
  -o spool-directory="$work" -o state-file="$work/app.state" -o log-file="$work/app.log" \
  -o log-level=${LOGLEVEL:-warn} &
app_pid=$!
for _ in $(seq 100); do (exec 9<>/dev/tcp/127.0.0.1/"$port") 2>/dev/null && break; sleep 0.05; done
TMPDIR=$work HOME=$work "$app" add -d bench -m orvante_203dpi -v "socket://127.0.0.1:$vport"
uri=ipp://127.0.0.1:$port/ipp/print/bench

cat >"$work/print.test" <<'TEST'
{
	OPERATION Print-Job
	GROUP operation-attributes-tag
	ATTR charset attributes-charset utf-8
	ATTR language attributes-natural-language en
	ATTR uri printer-uri $uri
	ATTR name requesting-user-name bench
	ATTR mimeMediaType document-format image/png
	FILE $filename
	STATUS successful-ok
}
TEST

start=$(date +%s.%N)
for _ in $(seq "$jobs"); do
  ipptool -f "$work/label.png" "$uri" "$work/print.test"
done
submitted=$(date +%s.%N)
# The virtual printer prints one line per label it wrote.
until [ "$(grep -c 'label-' "$work/vprinter.out" || true)" -ge "$jobs" ]; do
  sleep 0.02
  if ! kill -0 "$app_pid" 2>/dev/null; then echo "the application stopped" >&2; exit 1; fi
done
done_at=$(date +%s.%N)
# A label more than asked for would be a job printed twice.
sleep 1
printed=$(grep -c 'label-' "$work/vprinter.out" || true)
[ "$printed" -eq "$jobs" ] || { echo "$printed labels for $jobs jobs" >&2; exit 1; }

python3 - "$jobs" "$start" "$submitted" "$done_at" <<'PY'
import sys
jobs, start, submitted, done = int(sys.argv[1]), *map(float, sys.argv[2:])
total = done - start
print(f"{jobs} labels, 4 x 6 in PNG at 203 dpi")
print(f"submitting all jobs:                 {submitted - start:.2f} s")
print(f"first submission to the last label:  {total:.2f} s")
print(f"throughput:                          {jobs * 60 / total:.0f} labels a minute")
PY
