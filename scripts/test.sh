#!/usr/bin/env bash
# Sets up the machine and runs every test: formatting, the include layers, the unit, model,
# integration and view tests, the same tests again under AddressSanitizer and
# UndefinedBehaviorSanitizer, and short fuzz runs.
set -uo pipefail
cd "$(dirname "$0")/.."

fuzz_seconds="${VESK_FUZZ_SECONDS:-20}"
jobs="${VESK_JOBS:-$(nproc)}"
passed=0
failed=0
failures=()
mkdir -p build
summary=build/test-summary.log
: >"$summary"

step() {  # step NAME COMMAND...: runs a step, counts it, and keeps going on failure
  local name="$1"; shift
  echo
  echo "=== $name"
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    failures+=("$name")
  fi
}

bash scripts/setup.sh || exit 1

format_check() {
  git ls-files -- '*.cpp' '*.h' | xargs -r clang-format --dry-run --Werror
}

build_and_test() {
  cmake -S . -B build/ci -G Ninja -DCMAKE_BUILD_TYPE=Release &&
    cmake --build build/ci -j "$jobs" &&
    ctest --test-dir build/ci -j "$jobs" --output-on-failure --timeout 300 | tee -a "$summary"
}

sanitized() {
  cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DVESK_SANITIZE=ON -DVESK_APP=OFF -DVESK_BENCH=OFF \
      -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" &&
    cmake --build build/asan -j "$jobs" --target vesk_unit_tests vesk_model_tests vesk_integration_tests &&
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
      ctest --test-dir build/asan -j "$jobs" -L 'unit|model|integration' --output-on-failure --timeout 600 |
      tee -a "$summary"
}

fuzz() {
  CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVESK_FUZZ=ON &&
    cmake --build build/fuzz -j "$jobs" || return 1
  local target status=0
  for target in build/fuzz/fuzz/fuzz_*; do
    [ -f "$target" ] && [ -x "$target" ] || continue
    local corpus="build/fuzz/corpus/$(basename "$target")"
    mkdir -p "$corpus"
    echo "--- $(basename "$target") for ${fuzz_seconds}s"
    "$target" -max_total_time="$fuzz_seconds" -print_final_stats=0 "$corpus" >"build/fuzz/$(basename "$target").log" 2>&1 ||
      { status=1; tail -n 40 "build/fuzz/$(basename "$target").log"; }
  done
  return $status
}

step "clang-format" format_check
step "include layers" python3 scripts/check-layers.py
step "build and test" build_and_test
step "sanitized tests" sanitized
step "fuzz" fuzz

echo
if ((failed)); then
  echo "Failed steps: ${failures[*]}"
  # The failing test cases again, so that the last lines of a long log name them.
  grep -E '^[[:space:]]+[0-9]+ - .*\((Failed|Timeout|SEGFAULT|Subprocess aborted|Child aborted|Exception)' "$summary" || true
fi
# One closing line over every test case that ran (both CTest runs), plus the non-CTest steps.
read -r ctest_total ctest_failed < <(awk '/tests failed out of/ {f += $4; t += $NF} END {print t+0, f+0}' "$summary")
other_passed=$passed
other_failed=$failed
echo "checks: $((ctest_total - ctest_failed + other_passed)) passed, $((ctest_failed + other_failed)) failed"
((failed == 0))
