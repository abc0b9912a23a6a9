#!/usr/bin/env bash
# Set-up, build, and the whole test suite. Usage: scripts/test.sh [PRESET]
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"
scripts/setup.sh "$preset"
ctest --preset "$preset"
