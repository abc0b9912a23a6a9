#!/usr/bin/env bash
# Builds the libFuzzer targets with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer and runs each one for a bounded time, starting
# from its committed seed corpus. New inputs it finds go to a scratch folder,
# not into the repository. The seed is fixed (NVK_FUZZ_SEED, 1 unless told)
# so that a run on the same code explores the same way and a failure can be
# repeated. Usage: fuzz/run.sh [SECONDS_PER_TARGET] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true

# Installs clang and its runtime when missing, then builds the preset fuzz.
scripts/setup.sh fuzz

targets=("$@")
if ((${#targets[@]} == 0)); then
  for src in fuzz/*.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export ASAN_OPTIONS="detect_leaks=1:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
mkdir -p build/fuzz/artifacts

# One target per core at a time (NVK_FUZZ_JOBS, 2 unless told); each writes
# its own log, shown in target order once all have run.
fuzz_one() {
  local t=$1 seeds="fuzz/corpus/$1"
  mkdir -p "$scratch/$t"
  [ -d "$seeds" ] || seeds=""
  "build/fuzz/fuzz/$t" -seed="${NVK_FUZZ_SEED:-1}" -max_total_time="$seconds" -rss_limit_mb=4096 \
    -print_final_stats=1 -artifact_prefix=build/fuzz/artifacts/ "$scratch/$t" $seeds \
    >"build/fuzz/$t.log" 2>&1
  echo $? >"$scratch/$t.status"
}
jobs_max="${NVK_FUZZ_JOBS:-2}"
for t in "${targets[@]}"; do
  while (($(jobs -rp | wc -l) >= jobs_max)); do wait -n || true; done
  echo "fuzz: $t for ${seconds}s"
  fuzz_one "$t" &
done
wait

failed=0
for t in "${targets[@]}"; do
  log="build/fuzz/$t.log"
  if [ "$(cat "$scratch/$t.status" 2>/dev/null)" != 0 ]; then
    echo "== $t FAILED"
    tail -n 60 "$log"
    echo "fuzz: $t failed; repeat with: build/fuzz/fuzz/$t build/fuzz/artifacts/<the input above>"
    failed=1
  else
    echo "== $t"
    tail -n 6 "$log"
  fi
done
exit "$failed"
