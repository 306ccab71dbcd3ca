#!/usr/bin/env bash
# Style: layout, floors, file sizes. Goes through all checks before it fails.
set -uo pipefail
cd "$(dirname "$0")/.."

readonly kMostLines=600
failed=0

check() {
  local name=$1
  shift
  if "$@"; then
    echo "lint: $name: fine"
  else
    echo "lint: $name: FAILED" >&2
    failed=1
  fi
}

layout() { git ls-files '*.h' '*.cpp' | xargs --no-run-if-empty clang-format-16 --dry-run -Werror; }

fileSizes() {
  local long
  long=$(git ls-files '*.h' '*.cpp' '*.py' '*.sh' | xargs --no-run-if-empty wc -l |
    awk -v most=$kMostLines '$2 != "total" && $1 > most {print "  " $2 ": " $1 " lines, at most " most}')
  [[ -z $long ]] || { echo "$long" >&2; return 1; }
}

check "clang-format" layout
check "floors" python3 scripts/check_floors.py
check "file sizes" fileSizes
check "error ids in tests" python3 scripts/check_error_ids.py
exit $failed
