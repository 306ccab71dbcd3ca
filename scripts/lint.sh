#!/usr/bin/env bash
# Style: layout, names, types, floors, sizes. Goes through all checks before it fails.
#   scripts/lint.sh        what takes seconds
#   scripts/lint.sh --all  clang-tidy too: minutes where much has changed, seconds where little has
set -uo pipefail
cd "$(dirname "$0")/.."

readonly kMostLines=600
readonly kPython=(python scripts tests bench examples)
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

pythonLayout() { .venv/bin/ruff format --cache-dir build/lint/ruff --quiet --diff "${kPython[@]}"; }

pythonStyle() {
  .venv/bin/ruff check --cache-dir build/lint/ruff --quiet --output-format concise "${kPython[@]}"
}

# Two runs, since both folders of tests have a conftest.py.
pythonTypes() {
  local mypy=(.venv/bin/mypy --cache-dir build/lint/mypy --no-error-summary)
  "${mypy[@]}" --strict python/kvbigdata examples && "${mypy[@]}" python/kvbigdata python/tests bench && "${mypy[@]}" scripts tests/shell
}

# The rules of pyright, from a package that needs no network.
pythonRules() { .venv/bin/basedpyright --project pyproject.toml --pythonpath .venv/bin/python >build/lint/pyright || { cat build/lint/pyright >&2; return 1; }; }

fileSizes() {
  local long
  long=$(git ls-files '*.h' '*.cpp' '*.py' '*.sh' | xargs --no-run-if-empty wc -l |
    awk -v most=$kMostLines '$2 != "total" && $1 > most {print "  " $2 ": " $1 " lines, at most " most}')
  [[ -z $long ]] || { echo "$long" >&2; return 1; }
}

# A function fits on a screen; a table that is one may be a little longer.
functionLengths() {
  git ls-files '*.h' '*.cpp' '*.py' >build/lint/files &&
    .venv/bin/lizard --warnings_only -T length=72 -T cyclomatic_complexity=1000 --arguments 1000 \
      --input_file build/lint/files
}

# refuse PATTERN FILES...: prints the lines that match, and fails if there are some.
refuse() { ! git grep -n -P -e "$1" -- "${@:2}" >&2; }

testNames() {
  refuse '^\s*(TYPED_)?TEST(_F|_P)?\(\s*\w+,\s*+(?![A-Z][A-Za-z0-9]*\))' '*.cpp' &&
    refuse 'def test\w*[A-Z]' '*.py'
}

banners() { refuse '^\s*(//|#)\s*([-=*#~])\2\2' '*.h' '*.cpp' '*.py' '*.sh' '*.cmake' '*CMakeLists.txt'; }

# Each namespace opens after a blank line.
namespaces() {
  local close
  close=$(git ls-files '*.h' '*.cpp' | xargs --no-run-if-empty awk '
    /^namespace / && FNR > 1 && before ~ /^(#include|namespace )/ {print "  " FILENAME ":" FNR}
    {before = $0}')
  [[ -z $close ]] || { echo "$close" >&2; return 1; }
}

# Time is for benches: a slow machine fails no test.
wallTimes() {
  refuse '(EXPECT|ASSERT)_(LT|LE|GT|GE)\(.*\b(seconds|elapsed|duration)' 'tests/*.cpp' 'tests/*.h' &&
    refuse 'assert .*(monotonic|perf_counter|time\.time)\(' '*.py'
}

# Arrow's memory comes from the pool of the context (runtime/column/pool.h), never from a default.
arrowPools() {
  local code=('runtime/*.cpp' 'runtime/*.h' 'array/*.cpp' 'array/*.h' 'python/src/*.cpp' 'python/src/*.h')
  refuse 'default_memory_pool\(|default_io_context\(|default_exec_context\(' "${code[@]}" \
    ':!runtime/column/pool.cpp' ':!runtime/classes/sessionValues.h' &&
    refuse '(?<!parquet::)arrow::\w+Builder \w+(;|\{\})|arrow::(AllocateBuffer|AllocateResizableBuffer|AllocateEmptyBitmap)\([^,()]*\)' "${code[@]}" &&
    refuse 'arrow::(Concatenate|MakeArrayOfNull|MakeArrayFromScalar)\((?!.*[pP]ool)' "${code[@]}" &&
    refuse 'BufferOutputStream::Create\((?!.*[pP]ool)|ReadableFile::Open\((?!.*[pP]ool)' "${code[@]}" &&
    refuse 'compute::(Take|Cast|Filter|CallFunction|SortIndices)\((?!.*[cC]ontext)[^;]*\);' "${code[@]}"
}

mkdir -p build/lint
check "clang-format" layout
check "ruff format" pythonLayout
check "ruff" pythonStyle
check "mypy" pythonTypes
check "pyright" pythonRules
check "floors" python3 scripts/check_floors.py
check "file sizes" fileSizes
check "function lengths" functionLengths
check "test names" testNames
check "no banners" banners
check "blank lines around namespaces" namespaces
check "no wall time in tests" wallTimes
check "no default pool of Arrow" arrowPools
check "error ids in tests" python3 scripts/check_error_ids.py
check "wording" python3 scripts/check_wording.py
[[ ${1:-} != --all ]] || check "clang-tidy" scripts/check_tidy.py
exit $failed
