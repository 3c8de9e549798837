#!/usr/bin/env bash
# Counts the library's own instructions per call under callgrind and checks them against
# bench/instruction-budget.txt. Usage: bench/instructions.sh BUILD_DIR [OUT_DIR]
# Exit status: 0 every row within budget, 1 a row over it, 2 the measurement broke.
set -euo pipefail
build=${1:?usage: bench/instructions.sh BUILD_DIR [OUT_DIR]}
out=${2:-$build/bench-results}
here=$(cd "$(dirname "$0")" && pwd)
dumps=$out/callgrind
rm -rf "$dumps"
mkdir -p "$dumps"

# Only the caller's thread collects, switched on around the measured calls, and never inside
# AIBinder_transact: the hand-over to the HAL's thread spins or sleeps depending on the scheduler.
# The calls and their floors both make it, so leaving it out changes no difference.
valgrind --tool=callgrind --collect-atstart=no --toggle-collect=AIBinder_transact \
    --compress-strings=no --compress-pos=no \
    --callgrind-out-file="$dumps/callgrind.out" --log-file="$dumps/valgrind.log" \
    "$build/bench/zel_bench" --measure \
    || { tail -n 30 "$dumps/valgrind.log"; exit 2; }

"$build/bench/zel_bench" --report "$out" --budget "$here/instruction-budget.txt" \
    | tee "$out/instructions.md"
exit "${PIPESTATUS[0]}"
