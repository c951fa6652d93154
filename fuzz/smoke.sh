#!/usr/bin/env bash
# A short smoke run of every fuzz target for CI: builds them with clang and runs each for
# SMOKE_SECONDS (default 5) from its seeds alone, failing on any crash, sanitizer report or
# broken check. Nothing is written outside fuzz/build/.
set -euo pipefail
FUZZ_DIR="$(cd "$(dirname "$0")" && pwd)"
ROOT="$(cd "$FUZZ_DIR/.." && pwd)"
# shellcheck source=common.sh
. "$FUZZ_DIR/common.sh"

seconds="${SMOKE_SECONDS:-5}"
fuzz_build
artifacts="$FUZZ_BUILD/smoke-artifacts"
rm -rf "$artifacts"
mkdir -p "$artifacts"

failed=()
for t in "${FUZZ_TARGETS[@]}"; do
  seeds="$FUZZ_BUILD/smoke-seeds/$t"
  corpus="$FUZZ_BUILD/smoke-corpus/$t"
  rm -rf "$seeds" "$corpus"
  make_seeds "$t" "$seeds"
  mkdir -p "$corpus"
  log="$FUZZ_BUILD/smoke-$t.log"
  extra=()
  [ "$t" = options ] && extra+=(-dict="$FUZZ_DIR/options.dict" -close_fd_mask=2)
  status=0
  "$FUZZ_BUILD/fuzz/fuzz_$t" "$corpus" "$seeds" -max_total_time="$seconds" -max_len="$(max_len_of "$t")" \
    -timeout=25 -rss_limit_mb=4096 -print_final_stats=1 -artifact_prefix="$artifacts/$t-" "${extra[@]}" \
    >"$log" 2>&1 || status=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  if [ "$status" -ne 0 ]; then
    failed+=("$t")
    echo "fuzz smoke $t: FAILED (status $status, ${execs:-0} executions)"
    tail -40 "$log"
  else
    echo "fuzz smoke $t: ${execs:-0} executions, no crash"
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz smoke failed: ${failed[*]} (inputs in $artifacts)"
  exit 1
fi
echo "fuzz smoke: all ${#FUZZ_TARGETS[@]} targets ran without a crash"
