#!/usr/bin/env bash
# Builds ole_bench in Release, runs it, and prints one table: each of our benchmarks beside its peer, both
# times and the ratio peer time / ole time (above 1 means ole is faster). After a full run (no --filter,
# no --quick) the same table, the complexity fits of the scaling benchmarks, the date, the machine and the
# command go into docs/PERFORMANCE.md, between its generated-section markers; the text around them is kept.
#
# Naming convention (how rows pair up; bench/*_bench.cpp follow it):
#   BM_<Case>_<Side>[/<args>]      e.g. BM_Notify_OleNotifier/10     beside BM_Notify_BoostSignals2/10
#   BM_<Case><<Type>>[/<args>]     e.g. BM_StringCopy64<LightweightString<char>> beside BM_StringCopy64<std::string>
# Rows with the same <Case> and <args> pair up. Ours is the side whose name starts with "Ole" or the type
# that is ours (LightweightString<...>, Qv::...); the other one is the peer. A case may hold several of
# ours against one peer (each is a row). A benchmark with ->Complexity() gets its fit listed.
#
# Usage: scripts/bench.sh [--filter REGEX] [--quick]
#   --filter REGEX   run only the benchmarks whose names match (Google Benchmark's --benchmark_filter)
#   --quick          one repetition of a short run instead of three, for a first look
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

filter=.
quick=0
while (($#)); do
    case $1 in
        --filter)
            filter=${2:?--filter needs a regular expression}
            shift 2
            ;;
        --quick)
            quick=1
            shift
            ;;
        *)
            echo "usage: scripts/bench.sh [--filter REGEX] [--quick]" >&2
            exit 2
            ;;
    esac
done

bash scripts/setup.sh >&2

dir=build/bench
{
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DOLE_BUILD_TESTS=OFF -DOLE_BUILD_TOOLS=OFF
    cmake --build "$dir" -j"${OLE_JOBS:-2}" --target ole_bench
} >&2

args=(--benchmark_filter="$filter")
if ((quick)); then
    args+=(--benchmark_repetitions=1 --benchmark_min_time=0.05)
else
    args+=(--benchmark_repetitions=3 --benchmark_report_aggregates_only=true --benchmark_min_time=0.2)
fi

json=$(mktemp /tmp/ole-bench-XXXXXX.json)
trap 'rm -f "$json"' EXIT
"$dir/bench/ole_bench" "${args[@]}" --benchmark_out="$json" --benchmark_out_format=json >&2

command="scripts/bench.sh"
((quick)) && command+=" --quick"
[[ $filter != . ]] && command+=" --filter '$filter'"
# Only a full run replaces the recorded table; a filtered or quick one just prints.
doc=()
[[ $filter == . ]] && ((!quick)) && doc=(--doc docs/PERFORMANCE.md)
python3 scripts/bench_table.py "$json" --command "$command" "${doc[@]}"
