#!/usr/bin/env bash
# Line and branch coverage of the product code (every source of the checkout but tests/, fuzz/
# and bench/) from a build configured with -DVARN_COVERAGE=ON whose tests have run. Prints the
# per-file table and the totals, and fails when line coverage is below MIN_LINES percent.
#
#   .ci/coverage.sh BUILD_DIR [MIN_LINES]      (default 95)
#
# Branches that only an exception can take, and those the compiler proved unreachable, are not
# counted: they belong to the library calls on a line, not to the decisions of the code.
set -euo pipefail

[ $# -ge 1 ] && [ $# -le 2 ] || { echo "usage: $0 BUILD_DIR [MIN_LINES]" >&2; exit 2; }
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=$(realpath --relative-to=. "$1")
min=${2:-95}

command -v gcovr >/dev/null || { echo "coverage: gcovr is missing (package gcovr)" >&2; exit 1; }
[ -n "$(find "$build" -name '*.gcda' -print -quit)" ] ||
  { echo "coverage: no .gcda files under $build: configure with -DVARN_COVERAGE=ON and run the tests" >&2; exit 1; }

command=(gcovr --root . --object-directory "$build" --exclude 'tests/' --exclude 'fuzz/' --exclude 'bench/'
  --exclude-throw-branches --exclude-unreachable-branches --print-summary --fail-under-line "$min")
echo "${command[*]}"
status=0
"${command[@]}" || status=$?
if [ "$status" -ne 0 ]; then
  echo "coverage: FAILED (gcovr status $status; line coverage must be at least $min %)" >&2
  exit 1
fi
