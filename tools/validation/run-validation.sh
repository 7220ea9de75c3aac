#!/usr/bin/env bash
# Usage: tools/validation/run-validation.sh [DATA_DIR] [OUT_DIR] [KELOECG OPTION]...
#
# Runs `keloecg validate` on every annotated recording of DATA_DIR (default
# ../shared/data: mitdb/*.hea, nstdb/*.hea, mitdb-200hz/*.f32), then
# `keloecg batch` over the same recordings, checks that both give the same
# beat-by-beat figures, and prints the per-record tables in Markdown (the
# content of docs/validation.md). The options go to both runs, for example
# `--beats normal` or `--beats all --from 300`.
set -euo pipefail
cd "$(dirname "$0")/../.."
data=${1:-../shared/data}
out=${2:-build/validation}
shift $(( $# < 2 ? $# : 2 ))
options=("$@")
bin=build/default/tools/keloecg
[ -x "$bin" ] || scripts/build default >&2
mkdir -p "$out"

sets=()
for s in mitdb nstdb mitdb-200hz; do
  [ -d "$data/$s" ] || continue
  if [ "$s" = mitdb-200hz ]; then files=("$data/$s"/*.f32); else files=("$data/$s"/*.hea); fi
  echo "validate: $s (${#files[@]} records)" >&2
  "$bin" validate --csv "${options[@]}" "${files[@]}" > "$out/$s.csv"
  sets+=("$s")
done

echo "batch: ${sets[*]}" >&2
dirs=()
for s in "${sets[@]}"; do dirs+=("$data/$s"); done
rm -rf "$out/batch"
"$bin" batch "${options[@]}" "${dirs[@]}" --out "$out/batch" > "$out/batch.txt"

# The batch summary holds the same counts, record by record, in the same
# order (folders are read in sorted order, as the shell sorts the globs).
batch_counts=$(awk -F, 'NR == 1 { for (i = 1; i <= NF; i++) col[$i] = i; next }
  $col["error"] == "" && $col["reference_beats"] != "" { print $col["tp"], $col["fn"], $col["fp"] }' "$out/batch/summary.csv")
single_counts=$(for s in "${sets[@]}"; do awk -F, 'NR > 1 && $1 != "total" { print $4, $5, $6 }' "$out/$s.csv"; done)
if [ "$batch_counts" != "$single_counts" ]; then
  echo "MISMATCH between batch and single runs" >&2
  diff <(echo "$single_counts") <(echo "$batch_counts") >&2 || true
  exit 1
fi
echo "batch and single runs agree on all $(echo "$single_counts" | wc -l) records" >&2

# Markdown tables: one per data set, with its total.
for s in "${sets[@]}"; do
  echo
  echo "### $s"
  echo
  echo "| record | reference beats | detected | TP | FN | FP | Se % | +P % | F1 % | Se N % | Se S % | Se V % | Se F % | Se Q % |"
  echo "| --- | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: | ---: |"
  awk -F, 'function pc(v) { return v == "" ? "-" : sprintf("%.2f", 100 * v) }
    NR > 1 {
      name = ($1 == "total") ? "**total**" : $1
      printf "| %s | %d | %d | %d | %d | %d | %s | %s | %s | %s | %s | %s | %s | %s |\n", name, $2, $3, $4, $5, $6,
        pc($7), pc($8), pc($9), pc($10), pc($11), pc($12), pc($13), pc($14)
    }' "$out/$s.csv"
done
