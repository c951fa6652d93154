#!/usr/bin/env bash
# Builds the fuzz targets with clang (libFuzzer, AddressSanitizer, UndefinedBehaviorSanitizer)
# and runs each for SECONDS, printing the executions per target and in total.
# Usage: fuzz/run.sh SECONDS [TARGET...]        (default: every target)
# New inputs are kept in fuzz/corpus-TARGET/ (not committed) and grow from run to run; seeds
# come fresh each run from the shared captures, tests/regress/ and the captures the end-to-end
# tests write (when a test build exists in $VARN_TEST_BUILD, default build/). A crash leaves its
# input in fuzz/build/artifacts/; replay it with fuzz/build/fuzz/fuzz_TARGET_replay FILE (or
# the g++ build of the same name) and keep it in tests/regress/ once understood.
set -euo pipefail
FUZZ_DIR="$(cd "$(dirname "$0")" && pwd)"
ROOT="$(cd "$FUZZ_DIR/.." && pwd)"
# shellcheck source=common.sh
. "$FUZZ_DIR/common.sh"

if [ $# -lt 1 ] || ! [[ "$1" =~ ^[0-9]+$ ]]; then
  echo "usage: $0 SECONDS [TARGET...]   targets: ${FUZZ_TARGETS[*]}" >&2
  exit 2
fi
seconds="$1"
shift
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=("${FUZZ_TARGETS[@]}")

fuzz_build
harvest_test_captures
artifacts="$FUZZ_BUILD/artifacts"
mkdir -p "$artifacts"

total=0
failed=()
summary=()
for t in "${targets[@]}"; do
  seeds="$FUZZ_BUILD/seeds/$t"
  rm -rf "$seeds"
  make_seeds "$t" "$seeds"
  corpus="$FUZZ_DIR/corpus-$t"
  mkdir -p "$corpus"
  log="$FUZZ_BUILD/fuzz-$t.log"
  extra=()
  [ "$t" = options ] && extra+=(-dict="$FUZZ_DIR/options.dict" -close_fd_mask=2)
  echo "== $t: ${seconds}s, $(find "$seeds" -type f | wc -l) seeds, $(find "$corpus" -type f | wc -l) in corpus"
  status=0
  "$FUZZ_BUILD/fuzz/fuzz_$t" "$corpus" "$seeds" -max_total_time="$seconds" -max_len="$(max_len_of "$t")" \
    -timeout=25 -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$artifacts/$t-" "${extra[@]}" \
    >"$log" 2>&1 || status=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  execs=${execs:-0}
  total=$((total + execs))
  if [ "$status" -ne 0 ]; then
    failed+=("$t")
    summary+=("$(printf '%-8s %12s executions  FAILED (status %s, see %s)' "$t" "$execs" "$status" "$log")")
    grep -E "^(==[0-9]+==ERROR|SUMMARY|fuzz check failed|fatal assertion)|artifact_prefix|Test unit written" "$log" | head -8 || true
  else
    summary+=("$(printf '%-8s %12s executions' "$t" "$execs")")
  fi
  echo "${summary[-1]}"
done

echo "== executions per target"
printf '%s\n' "${summary[@]}"
printf '%-8s %12s executions\n' total "$total"
if [ ${#failed[@]} -gt 0 ]; then
  echo "crashes in: ${failed[*]} (inputs in $artifacts)"
  exit 1
fi
