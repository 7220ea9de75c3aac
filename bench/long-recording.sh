#!/usr/bin/env bash
# Usage: bench/long-recording.sh [DIR]
#
# The figures of a day of ECG in the README: keloecg qrs, hrv and report on
# 24 hours at 200 Hz (raw float32) and at 360 Hz (WFDB), wall time and peak
# memory of each; hrv on five minutes cut from the 24-hour 360 Hz file
# against a five-minute file; and the 24-hour report in headless Chromium:
# the time until it is laid out (median of five openings) and the redraws
# behind paging and zooming (the page's #bench). The day is the two-hour
# MIT-BIH test recording twelve times (bench_make_day writes it into DIR,
# default a temporary folder). Needs the default preset built, GNU time
# (/usr/bin/time) and chromium.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
keloecg=$root/build/default/tools/keloecg
make_day=$root/build/default/bench/bench_make_day
dir=${1:-$(mktemp -d)}
[ -n "${1:-}" ] || trap 'rm -rf "$dir"' EXIT
"$make_day" "$dir" >/dev/null
cd "$dir"

measure() {  # label, then the keloecg arguments
  local label=$1
  shift
  /usr/bin/time -f "%e %M" -o time.txt "$keloecg" "$@" >/dev/null
  read -r seconds kb < time.txt
  printf '%-44s %7.2f s %7.0f MB\n' "$label" "$seconds" "$((kb / 1024))"
}

echo "machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), $(nproc) cores"
for input in day200.f32 day.hea; do
  measure "qrs --csv $input" qrs --csv "$input" -o qrs.csv
  measure "hrv --json $input" hrv --json "$input" -o hrv.json
  measure "report $input" report "$input" -o "report-${input%%.*}.html"
done
head -c $((5 * 60 * 360 * 3 / 2)) day.dat > five.dat
printf 'five 1 360 108000\nfive.dat 212 200 11 1024 995 0 0 MLII\n' > five.hea
measure "hrv five.hea (a 5-minute file)" hrv five.hea
measure "hrv --start 12:00:00 --duration 5:00 day.hea" hrv --start 43200 --duration 300 day.hea
echo "report of 24 h at 200 Hz: $(($(stat -c %s report-day200.html) / 1024 / 1024)) MB"

# The page is measured in a copy with the self-check added (reports carry
# none).
{ echo "<script>"; cat "$root/tools/report/selftest.js"; echo "</script>"; } > selftest.html
sed "/<head>/r selftest.html" report-day200.html > measured.html
page="file://$dir/measured.html"
selftest() {
  chromium --headless --no-sandbox --disable-gpu --user-data-dir="$dir/profile" --window-size=1400,2400 \
    --dump-dom "$1" 2>/dev/null | sed -n 's/.*<pre id="kelo-selftest" hidden="">\([^<]*\)<\/pre>.*/\1/p'
}
loads=()
for _ in 1 2 3 4 5; do
  loads+=("$(selftest "$page" | sed -n 's/.*"loadMs":\([0-9.]*\).*/\1/p')")
done
echo "report load, ms (5 openings): ${loads[*]}; median $(printf '%s\n' "${loads[@]}" | sort -n | sed -n 3p)"
echo "redraw while paging and zooming (ms):"
selftest "$page#bench" | sed 's/.*"bench":\(.*\)}$/\1/; s/},"/}\n"/g'
echo
