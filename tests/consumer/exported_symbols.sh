#!/bin/sh
# The shared library exports the published interface and the second door:
# names in namespace orvante and the session, their vtables and type
# information, and the published C names. The library's internals (links,
# serial queues, BlueZ backends, the runtime, raster steps, text drawing)
# and the standard library's template instances stay inside.
set -eu
library="$1"
symbols=$(nm -DC --defined-only "$library" | sed -E 's/^[0-9a-f]+ [A-Za-z] //')
published_c='^(text_buf|lson|rson|dad|match_position|match_length|textsize|codesize|printcount|in_pos|out_size|LZSSEncoding|GetEncodeDataSize|Encode|InitTree|InsertNode|DeleteNode|my_getc|IsEOF|my_putc|BleReceivedLen|countPacket|ORVANTESDKVersionNumber|ORVANTESDKVersionString)$'
public='^((typeinfo|typeinfo name|vtable|guard variable) for )?(orvante::|ORVANTESDK)'
internal='orvante::(raster|text|direct|runtime|transport|fields|platform|vprinter)::|orvante::lzss::(Ring|MatchFinder|Counters|encodeLoop|LongestMatches|chooseCheapest)'
outside=$(printf '%s\n' "$symbols" | grep -Ev "$published_c" | grep -Ev "$public" || true)
inside=$(printf '%s\n' "$symbols" | grep -E "$internal" || true)
if [ -n "$outside$inside" ]; then
  echo "symbols that should not be exported:"
  printf '%s\n' "$outside" "$inside" | sed '/^$/d' | head -40
  exit 1
fi
printf '%s\n' "$symbols" | grep -q '^ORVANTESDK::openport_ethernet' || { echo "the session is not exported"; exit 1; }
printf '%s\n' "$symbols" | grep -q '^orvante::Printer::open' || { echo "the second door is not exported"; exit 1; }
echo "$(printf '%s\n' "$symbols" | wc -l) symbols, all public"
