#!/usr/bin/env bash
# Runs every benchmark of a build folder, leaves its JSON in the folder's results/, and writes
# docs/performance.md.
#   scripts/bench.sh <build folder>
set -euo pipefail
cd "$(dirname "$0")/.."

readonly kBuild=$1
readonly kResults=$kBuild/results
mkdir -p "$kResults"

for program in "$kBuild"/bin/bench_*; do
  echo "== ${program##*/}"
  # The two sides of a comparison take turns, so that other load on the machine slows both.
  [[ $program == *_flights ]] && takeTurns=true || takeTurns=false
  "$program" --benchmark_enable_random_interleaving=$takeTurns --benchmark_repetitions=5 \
    --benchmark_display_aggregates_only=true --benchmark_min_time=0.3 \
    --benchmark_out="$kResults/${program##*/bench_}.json" --benchmark_out_format=json
done
echo "== from Python"
if ! cmp -s bench/requirements.txt "$kBuild/peers/requirements.txt"; then
  rm -rf "$kBuild/peers"
  .venv/bin/pip install --quiet --disable-pip-version-check --target "$kBuild/peers" \
    -r bench/requirements.txt
  cp bench/requirements.txt "$kBuild/peers"
fi
PYTHONPATH=$kBuild/python:$kBuild/peers .venv/bin/python bench/from_python.py "$kResults/python.json"
echo "== queries"
PYTHONPATH=$kBuild/python .venv/bin/python bench/queries.py "$kResults/queries.json"
echo "== whole processes"
python3 scripts/measure_processes.py "$kBuild" "$kResults/processes.json"
echo "== memory"
.venv/bin/python scripts/measure_memory.py "$kBuild" "$kResults/memory.json"
python3 scripts/profile_recording.py "$kBuild/bin/bench_recording" "$kResults/profile.json"
python3 scripts/performance_table.py "$kResults" docs/performance.md
cat docs/performance.md
