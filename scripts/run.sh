#!/usr/bin/env bash
# Builds the ole command-line tool and runs it with the given arguments (--help when there are none).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/setup.sh >&2

dir=build/run
{
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DOLE_BUILD_TESTS=OFF -DOLE_BUILD_BENCH=OFF -DOLE_BUILD_TOOLS=ON
    cmake --build "$dir" -j"${OLE_JOBS:-2}" --target ole_tool
} >&2

if (($# == 0)); then
    set -- --help
fi
exec "$dir/tools/ole" "$@"
