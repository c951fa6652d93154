#!/usr/bin/env bash
# Builds the test suite in every build type, with and without the sanitizers, and as a packager
# checking the tests would (RelWithDebInfo, sanitizers given in CMAKE_CXX_FLAGS, warnings not
# errors), runs every test in each, and prints one line per configuration: build result, number
# of compiler warnings, test result and time. Too long for .ci/run (nine builds); run it before
# a release or after a compiler upgrade.
#
#   .ci/matrix.sh [OUT_DIR [NAME...]]   (default build-matrix; one build folder per configuration;
#                                        NAMEs, such as Release+sanitize, run only those)
#
# Exits non-zero when a configuration fails to build or a test fails.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
out=${1:-build-matrix}
[ $# -eq 0 ] || shift
only=" $* "
mkdir -p "$out"
out=$(cd "$out" && pwd)
jobs=${VARN_MATRIX_JOBS:-2}

configs=()
for type in Debug Release RelWithDebInfo MinSizeRel; do
  configs+=("$type|-DCMAKE_BUILD_TYPE=$type -DVARN_WERROR=ON")
  configs+=("$type+sanitize|-DCMAKE_BUILD_TYPE=$type -DVARN_SANITIZE=ON -DVARN_WERROR=ON")
done
configs+=("packager|-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS=-fsanitize=address,undefined")

failed=0
results=()
for config in "${configs[@]}"; do
  name=${config%%|*}
  [ "$only" = "  " ] || [[ $only == *" $name "* ]] || continue
  read -r -a flags <<<"${config#*|}"
  dir="$out/$name"
  started=$SECONDS
  build=ok tests=ok
  echo "== $name: cmake ${flags[*]}"
  if ! { cmake -S . -B "$dir" "${flags[@]}" >"$dir.log" 2>&1 && cmake --build "$dir" -j"$jobs" >>"$dir.log" 2>&1; }; then
    build=FAILED tests=-
    tail -30 "$dir.log"
  elif ! (cd "$dir" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
      ctest --output-on-failure --timeout 900 </dev/null >"$dir.test.log" 2>&1); then
    tests=FAILED
    tail -40 "$dir.test.log"
  fi
  warnings=$(grep -cE '(warning|error): .*\[-W' "$dir.log")
  [ "$build" = ok ] && [ "$tests" = ok ] || failed=1
  results+=("$(printf '%-22s build %-6s warnings %-3s tests %-6s %4d s' "$name" "$build" "$warnings" "$tests" $((SECONDS - started)))")
  echo "${results[-1]}"
done

echo "== matrix ($(g++ --version | head -1), cmake $(cmake --version | head -1 | cut -d' ' -f3))"
printf '%s\n' "${results[@]}"
exit "$failed"
