#!/usr/bin/env bash
# Usage: bench/jvm-soak.sh [QRS_CALLS] [HRV_CALLS]   (default 100000 and 20000)
#
# The Java bridge in one JVM for many calls: the resident memory of the
# process as the calls go on (flat means nothing leaks), and four threads
# running runHRV at once with results equal to single-threaded ones. Runs
# on the bundled recording; needs the default preset built.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$root/build/default
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
key=$(sed -n 's/^KELO_AES_KEY:[A-Z]*=//p' "$build/CMakeCache.txt")
javac -encoding UTF-8 -d "$out" -cp "$build/java/kelosolver.jar" "$root/bench/jvm/Soak.java"
java -Xmx256m -Dkelo.aesKey="$key" -Djava.library.path="$build" \
  -cp "$build/java/kelosolver.jar:$out" Soak "$root/data/mitdb100-5min.f32" "${1:-100000}" "${2:-20000}"
