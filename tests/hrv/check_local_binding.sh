#!/usr/bin/env bash
# Usage: check_local_binding.sh LIB.so SYMBOL_LIST
# No dynamic relocation (PLT slot or GOT entry) of the library may refer to
# one of its exported HRV functions: the library calls its own code directly,
# so no other definition of a name such as error or four1 can be interposed.
# The globals pwr, Ptr and Ptr1 go through the GOT on purpose.
set -euo pipefail
relocated=$(readelf -rW "$1" | awk 'NF >= 5 { print $5 }' | sort -u)
functions=$(sed -e 's/#.*//' -e 's/[[:space:]]//g' "$2" | grep -v -x -E 'pwr|Ptr1?|')
bound=$(comm -12 <(echo "$relocated") <(echo "$functions" | sort -u))
[ -z "$bound" ] || { echo "dynamic relocations against: $bound"; exit 1; }
echo "no HRV function is reached through a dynamic relocation"
