#!/usr/bin/env bash
# Usage: tools/report/bench-report.sh [FILE] [keloecg options...]
#
# Writes the report of FILE (default: the bundled recording) and opens it
# in headless Chromium with #bench: the page times the redraws behind
# zooming and moving the ECG (40 steps each; ECG, overview and tachogram
# redrawn) and this prints the page's size, build time and those timings.
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
keloecg=$root/build/default/tools/keloecg
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
"$keloecg" report -o "$out/report.html" "$@" >/dev/null
echo "report: $(($(stat -c %s "$out/report.html") / 1024)) KB"
# The measurement runs in a copy of the report with the self-check added.
{ echo "<script>"; cat "$root/tools/report/selftest.js"; echo "</script>"; } > "$out/selftest.html"
sed "/<head>/r $out/selftest.html" "$out/report.html" > "$out/measured.html"
chromium --headless --no-sandbox --disable-gpu --user-data-dir="$out/profile" --window-size=1400,2000 \
  --dump-dom "file://$out/measured.html#bench" 2>/dev/null |
  sed -n 's/.*<pre id="kelo-selftest" hidden="">\([^<]*\)<\/pre>.*/\1/p'
