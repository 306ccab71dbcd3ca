#!/usr/bin/env bash
# Runs every benchmark program of a build folder; leaves one JSON file each in its results/.
#   scripts/bench.sh <build folder>
set -euo pipefail
cd "$(dirname "$0")/.."

readonly kResults=$1/results
mkdir -p "$kResults"
for program in "$1"/bin/bench_*; do
  name=${program##*/bench_}
  "$program" --benchmark_out="$kResults/$name.json" --benchmark_out_format=json
done
