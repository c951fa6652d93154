#!/usr/bin/env bash
# Rewrites tests/golden/*.out from the current varn binary, after a deliberate change of output.
# Usage: tests/golden/refresh.sh [BUILD_DIR]   (default: build/ at the top of the checkout)
# Read every rewritten .out line by line before keeping it: the files are the expected reports.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
build="${1:-$here/../../build}"
cmake --build "$build" --target varn varn_e2e_tests
VARN_GOLDEN_REFRESH=1 "$build/tests/varn_e2e_tests" --gtest_filter='golden_test.*'
git -C "$here" status --short -- . || true
