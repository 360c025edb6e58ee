#!/usr/bin/env bash
# Line and branch coverage of the library (ole/, platform/, tools/) under the unit tests.
# Builds a separate Debug tree with --coverage in build/coverage (or $1), runs ctest there and prints the
# gcovr summary; test, bench and fuzz code are left out of the figures.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh

dir=${1:-build/coverage}
jobs=${OLE_JOBS:-2}

cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DOLE_BUILD_BENCH=OFF -DOLE_WERROR=ON \
    -DCMAKE_CXX_FLAGS="--coverage -fprofile-update=atomic" -DCMAKE_EXE_LINKER_FLAGS=--coverage \
    -DCMAKE_SHARED_LINKER_FLAGS=--coverage
cmake --build "$dir" -j"$jobs"
# Counters from an earlier run would inflate the figures.
find "$dir" -name '*.gcda' -delete
ctest --test-dir "$dir" -j"$jobs" --output-on-failure --no-tests=error -E '^consumer_|_installed_package$'

root=$(pwd)
gcovr --root "$root" --object-directory "$dir" \
    --filter "$root/ole/" --filter "$root/platform/" --filter "$root/tools/" \
    --exclude-unreachable-branches --exclude-throw-branches \
    --gcov-ignore-parse-errors --exclude-directories '.*/CMakeFiles/[0-9][^/]*$' \
    --print-summary --txt "$dir/coverage.txt" -j"$jobs"
