#!/usr/bin/env bash
# Usage: check_local_binding.sh LIB.so SYMBOL_LIST
# The library calls its own HRV routines directly: no dynamic relocation (no
# PLT slot, no GOT entry) may refer to one of the exported HRV functions, so
# that no other definition of a name such as error or four1 can be
# interposed. The globals (pwr, Ptr, Ptr1) are reached through the GOT on
# purpose, so that a program's copy of pwr sees the stored variance.
set -euo pipefail
lib=$1 list=$2
relocated=$(readelf -rW "$lib" | awk 'NF >= 5 { print $5 }' | sort -u)
status=0
while read -r name; do
  name=${name%%#*}; name=${name//[[:space:]]/}
  case "$name" in "" | pwr | Ptr | Ptr1) continue ;; esac
  if grep -qx -- "$name" <<<"$relocated"; then echo "dynamic relocation against $name"; status=1; fi
done < "$list"
[ $status -eq 0 ] && echo "no HRV function is reached through a dynamic relocation"
exit $status
