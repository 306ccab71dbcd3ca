#!/usr/bin/env bash
# Installs the Python package into a fresh environment, as a user does, and asks it three lines in a
# folder that isn't the checkout. Then removes pyarrow, and expects one sentence that says so.
#   scripts/check_wheel.sh [<folder for the environment>]
set -euo pipefail
cd "$(dirname "$0")/.."

readonly kRoot=$PWD
readonly kEnvironment=${1:-build/wheel-environment}

fail() {
  echo "wheel: FAILED: $1" >&2
  exit 1
}

rm -rf "$kEnvironment"
.venv/bin/python -m venv "$kEnvironment"
"$kEnvironment/bin/pip" install --quiet --disable-pip-version-check .
kPython=$(realpath --no-symlinks "$kEnvironment/bin/python")
readonly kPython

cd /
unset PYTHONPATH
answer=$("$kPython" - "$kRoot/data/flights.csv" <<'PYTHON'
import sys
import kvbigdata as kv

flights = kv.read(sys.argv[1])
late = (flights.arr_delay > 60).mean()
print(late.compute())
PYTHON
)
[[ $answer == 0.08251478727700311 ]] || fail "the answer is $answer"

"$kPython" -m pip uninstall --quiet --yes pyarrow
said=$("$kPython" -c 'import kvbigdata' 2>&1 | tail -1) || true
readonly kExpected="ImportError: kvbigdata needs pyarrow >=26.0,<26.1, which isn't installed."
[[ $said == "$kExpected" ]] || fail "without pyarrow it says: $said"
echo "wheel: fine"
