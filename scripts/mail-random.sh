#!/usr/bin/env bash
# Runs as many random sequences of the mail client as asked, compared with the
# reference model, spread over the machine's cores:
#   scripts/mail-random.sh --seeds N [--first SEED] [--preset dev|ci|tsan]
# Builds the test binary of the preset (dev by default; ci runs under
# AddressSanitizer, tsan under ThreadSanitizer), prints the sequences per
# second, and each failing seed with its sequence and a shortened one that
# still fails. Exits 1 if any seed failed. One seed alone is replayed by
#   MAIL_RANDOM_SEEDS=SEED:1 build/dev/Tests/KRClientTests \
#     --gtest_filter=MailRandomThreadTest.SeededSequencesAgreeWithTheModel
set -euo pipefail
cd "$(dirname "$0")/.."

seeds=""
first=1
preset=dev
while [ $# -gt 0 ]; do
  case "$1" in
    --seeds) seeds=${2:-}; shift 2 ;;
    --first) first=${2:-}; shift 2 ;;
    --preset) preset=${2:-}; shift 2 ;;
    *) echo "usage: scripts/mail-random.sh --seeds N [--first SEED] [--preset dev|ci|tsan]" >&2
       exit 2 ;;
  esac
done
if ! [[ "$seeds" =~ ^[1-9][0-9]*$ && "$first" =~ ^[0-9]+$ ]]; then
  echo "mail-random.sh: --seeds takes a positive count and --first a seed" >&2
  exit 2
fi
case "$preset" in dev|ci|tsan) ;; *) echo "mail-random.sh: unknown preset '$preset'" >&2; exit 2 ;; esac

cmake --preset "$preset" >/dev/null
nice cmake --build --preset "$preset" --target KRClientTests >/dev/null
binary=build/$preset/Tests/KRClientTests

jobs=$(nproc)
[ "$jobs" -gt "$seeds" ] && jobs=$seeds
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1}"

start=$(date +%s.%N)
pids=()
next=$first
for ((j = 0; j < jobs; ++j)); do
  count=$(( seeds / jobs + (j < seeds % jobs ? 1 : 0) ))
  MAIL_RANDOM_SEEDS="$next:$count" "$binary" \
    --gtest_filter=MailRandomThreadTest.SeededSequencesAgreeWithTheModel >"$out/$j.log" 2>&1 &
  pids+=($!)
  next=$(( next + count ))
done
status=0
for pid in "${pids[@]}"; do wait "$pid" || status=1; done
end=$(date +%s.%N)

ran=$(grep -ho '^mail-random: [0-9]*' "$out"/*.log | awk '{s += $2} END {print s + 0}')
awk -v n="$ran" -v a="$start" -v b="$end" -v j="$jobs" \
  'BEGIN {printf "%d sequences in %.1f s on %d cores: %.1f sequences per second\n", n, b - a, j, n / (b - a)}'
# A report's lines are indented; the library's own debug lines in between are not.
failures=$(awk '/^failing seed/ {p = 1; print; next} p && /^  / {print; next} /^(\.\.|\[)/ {p = 0}' \
  "$out"/*.log)
if [ -n "$failures" ]; then echo "$failures"; status=1; fi
if [ "$ran" -ne "$seeds" ]; then
  echo "some runs ended early; their last lines:" >&2
  for log in "$out"/*.log; do tail -n 5 "$log" >&2; done
  status=1
fi
if [ "$status" -eq 0 ]; then echo "no failing seed"; fi
exit "$status"
