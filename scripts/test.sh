#!/usr/bin/env bash
# Builds ole three times and runs the tests in each build:
#   build/ci    optimised with debug info, warnings as errors, with tools and benchmarks;
#   build/asan  AddressSanitizer + UndefinedBehaviorSanitizer, without benchmarks;
#   build/tsan  ThreadSanitizer, only the tests labelled "threads" (the families that start threads).
# Exits non-zero when any configure, build or test step fails; every suite runs either way.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh

jobs=${OLE_JOBS:-2}
started=$SECONDS
failures=()

# Any sanitizer report fails the test that produced it; leaks count as failures.
export ASAN_OPTIONS=halt_on_error=1:abort_on_error=0:detect_leaks=1:detect_stack_use_after_return=1:check_initialization_order=1:strict_init_order=1
export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1

# suite NAME DIR CMAKE-ARGS...: configure, build and test one build directory; $ctest_args narrows the tests.
ctest_args=()
suite() {
    local name=$1 dir=$2
    shift 2
    local t0=$SECONDS
    echo "=== $name: configure $dir"
    if ! cmake -S . -B "$dir" -G Ninja "$@"; then
        failures+=("$name: configure")
        return
    fi
    echo "=== $name: build"
    if ! cmake --build "$dir" -j"$jobs"; then
        failures+=("$name: build")
        return
    fi
    echo "=== $name: test"
    if ! ctest --test-dir "$dir" -j"$jobs" --output-on-failure --no-tests=error "${ctest_args[@]}"; then
        failures+=("$name: tests")
    fi
    echo "=== $name: done in $((SECONDS - t0))s"
}

# The checked-in .clang-format is the one layout: a file that does not follow it fails the run.
echo "=== format: clang-format"
if ! git ls-files -z -- '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror; then
    failures+=("format")
fi

suite release build/ci -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOLE_WERROR=ON -DOLE_SANITIZE=OFF \
    -DOLE_BUILD_TESTS=ON -DOLE_BUILD_TOOLS=ON -DOLE_BUILD_BENCH=ON
suite sanitize build/asan -DCMAKE_BUILD_TYPE=Debug -DOLE_WERROR=ON -DOLE_SANITIZE=ON \
    -DOLE_BUILD_TESTS=ON -DOLE_BUILD_TOOLS=ON -DOLE_BUILD_BENCH=OFF
ctest_args=(-L threads)
suite tsan build/tsan -DCMAKE_BUILD_TYPE=Debug "-DCMAKE_CXX_FLAGS_DEBUG=-g -O1" -DOLE_WERROR=ON -DOLE_TSAN=ON \
    -DOLE_BUILD_TESTS=ON -DOLE_BUILD_TOOLS=OFF -DOLE_BUILD_BENCH=OFF
ctest_args=()

elapsed=$((SECONDS - started))
if ((${#failures[@]})); then
    echo "test.sh: FAILED (${failures[*]}) after ${elapsed}s"
    exit 1
fi
echo "test.sh: PASSED (release, address and thread sanitizer suites) in ${elapsed}s"
