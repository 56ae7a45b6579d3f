#!/bin/sh
# Arrows run down only. The core (commands, encoder, raster, PDF pages,
# links) and the platform backends know nothing of the doors above them:
# no file there includes a header of the published session, the second
# door or the batch layer, and nothing but the runtime includes the
# runtime. Public headers of the doors are named too, since including them
# is the same arrow. The runtime itself sits below the doors.
set -eu
src="$1/src"
lower="commands lzss raster pdf transport platform runtime"
doors='"(\.\./)+(session|printer|batch)/|<orvante/(session|session_fields|printer|delivery|batch|template|job_store|label|version)\.hpp>'
found=""
for folder in $lower; do
  upper=$doors
  [ "$folder" = runtime ] || upper="$doors|\"(\.\./)+runtime/"
  hits=$(grep -rnE "#include +($upper)" "$src/$folder" || true)
  [ -n "$hits" ] && found="$found$hits
"
done
if [ -n "$found" ]; then
  echo "files below the doors that reach up:"
  printf '%s' "$found"
  exit 1
fi
echo "no arrow runs up from: $lower"
