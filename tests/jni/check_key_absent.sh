#!/usr/bin/env bash
# Usage: check_key_absent.sh LIB KEYHEX — fails if the 16 key bytes stand
# anywhere in LIB as one contiguous block.
set -euo pipefail
lib=$1 key=$2
pattern=$(echo "$key" | sed 's/../\\x&/g')
# The search itself must be able to find the key: try it on a file that
# holds it between other bytes.
probe=$(mktemp)
trap 'rm -f "$probe"' EXIT
printf "head$(echo "$key" | sed 's/../\\x&/g')tail" > "$probe"
if ! LC_ALL=C grep -q -a -P "$pattern" "$probe"; then
  echo "the search for the key does not work on this machine"
  exit 1
fi
if LC_ALL=C grep -q -a -P "$pattern" "$lib"; then
  echo "the AES key is stored contiguously in $lib"
  exit 1
fi
echo "the key does not appear as one block in $(basename "$lib")"
