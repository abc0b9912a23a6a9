#!/usr/bin/env bash
# Set-up, build, and the whole test suite. Usage: scripts/test.sh [PRESET]
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/setup.sh "$preset"
run=()
# ThreadSanitizer needs its fixed shadow-memory layout, which some kernels' wider address
# randomization breaks ("unexpected memory mapping"): its tests run without randomization
# where the system allows that.
if [ "$preset" = tsan ] && setarch "$(uname -m)" -R true 2>/dev/null; then run=(setarch "$(uname -m)" -R); fi
"${run[@]}" ctest --preset "$preset"
