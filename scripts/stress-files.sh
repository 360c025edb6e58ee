#!/usr/bin/env bash
# Runs the tool from several processes at once against one fresh $QUORVANE_HOME and counts what went
# wrong: cookies handed out twice, preferences and configb entries lost.
#   scripts/stress-files.sh [path to the ole tool]   (default build/dev/tools/ole)
set -u
ole=$(realpath "${1:-build/dev/tools/ole}")
export QUORVANE_HOME=$(mktemp -d)
trap 'rm -rf "$QUORVANE_HOME"' EXIT
cd "$QUORVANE_HOME"

# Two shells allocating 20 x 50 cookies each.
for shell in a b; do
    (for i in $(seq 20); do "$ole" cookie new --type P --count 50 2>/dev/null; done >"cookies.$shell") &
done
wait
total=$(cat cookies.a cookies.b | wc -l)
duplicates=$(cat cookies.a cookies.b | sort | uniq -d | wc -l)
echo "cookies: $total handed out, $duplicates duplicates"

# 40 processes each setting a preference of its own.
for i in $(seq 40); do "$ole" prefs set "Stress$i" "$i" --type int >/dev/null 2>&1 & done
wait
kept=$("$ole" prefs list --json | grep -c '"Stress')
echo "preferences: $kept of 40 kept, $((40 - kept)) lost"

# 40 processes each setting an entry of its own in one configb file.
printf '{\n}\n' >record.cfg
for i in $(seq 40); do "$ole" config set record.cfg "entry$i" "$i" --type int >/dev/null 2>&1 & done
wait
kept=$("$ole" config show record.cfg --json | grep -c '"entry')
echo "configb entries: $kept of 40 kept, $((40 - kept)) lost"
