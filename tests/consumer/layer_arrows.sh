#!/bin/sh
# Arrows run down only. The core (commands, encoder, raster, PDF pages,
# links) and the platform backends know nothing of the doors above them:
# no file there includes a header of the published session, the second
# door, the batch layer or the composition root. Public headers of the
# published door are named too, since including them is the same arrow.
set -eu
src="$1/src"
lower="commands lzss raster pdf transport platform"
upper='"(\.\./)+(session|printer|batch|runtime)/|<orvante/(session|session_fields|printer|delivery|batch|template|job_store|label)\.hpp>'
found=""
for folder in $lower; do
  hits=$(grep -rnE "#include +$upper" "$src/$folder" || true)
  [ -n "$hits" ] && found="$found$hits
"
done
if [ -n "$found" ]; then
  echo "files below the doors that reach up:"
  printf '%s' "$found"
  exit 1
fi
echo "no arrow runs up from: $lower"
