#!/usr/bin/env bash
# Usage: check_exports.sh LIB.so INTERNAL_NAMES SYMBOL_LIST...
# Compares the dynamic symbol table of LIB.so with the union of the symbol
# lists and checks that no internal helper and no C++-mangled name is
# exported.
set -euo pipefail
lib=$1 internal=$2
shift 2
# Sanitizer builds add their own instrumentation symbols (__odr_asan.*, ...).
actual=$(nm -D --defined-only "$lib" | awk 'NF == 3 { print $3 }' | grep -v -E '^__(odr_asan|asan|ubsan|tsan)' | sort -u)
expected=$(cat "$@" | sed -e 's/#.*//' -e 's/[[:space:]]//g' | grep -v '^$' | sort -u)
status=0
missing=$(comm -13 <(echo "$actual") <(echo "$expected"))
extra=$(comm -23 <(echo "$actual") <(echo "$expected"))
if [ -n "$missing" ]; then echo "not exported:"; echo "$missing" | sed 's/^/  /'; status=1; fi
if [ -n "$extra" ]; then echo "exported but not listed:"; echo "$extra" | sed 's/^/  /'; status=1; fi
mangled=$(echo "$actual" | grep '^_Z' || true)
if [ -n "$mangled" ]; then echo "C++-mangled names exported:"; echo "$mangled" | sed 's/^/  /'; status=1; fi
while read -r name; do
  name=${name%%#*}; name=${name//[[:space:]]/}
  [ -z "$name" ] && continue
  if echo "$actual" | grep -q -- "$name"; then echo "internal helper exported: $name"; status=1; fi
done < "$internal"
[ $status -eq 0 ] && echo "$(echo "$actual" | wc -l) symbols exported, as listed"
exit $status
