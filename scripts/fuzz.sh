#!/usr/bin/env bash
# Runs one libFuzzer target for a while:
#   scripts/fuzz.sh TARGET SECONDS [LIBFUZZER_OPTION ...]
# TARGET: xml_channel, cache_info, data_options, login_data, location, contact_list or
# native_image; client_mail, outbox, mails_file, attachment_json or json.
# Builds the fuzzers with clang, AddressSanitizer and UndefinedBehaviorSanitizer
# in build/fuzz, starts from the seed corpus Fuzz/corpus/TARGET (copied, so the
# repository's corpus only changes by hand), and keeps what it finds in
# build/fuzz/corpus/TARGET and build/fuzz/findings/TARGET. A crash's input is
# replayed by running the binary on that file.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
  echo "usage: scripts/fuzz.sh TARGET SECONDS [LIBFUZZER_OPTION ...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
case "$target" in
  xml_channel|cache_info|data_options|login_data|location|contact_list|native_image) ;;
  client_mail|outbox|mails_file|attachment_json|json) ;;
  *) echo "fuzz.sh: unknown target '$target'" >&2; exit 2 ;;
esac

./scripts/setup.sh
build=build/fuzz
CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKRC_BUILD_FUZZERS=ON -DKRC_SANITIZE="address;undefined" -DKRC_BUILD_TESTS=OFF \
  -DKRC_BUILD_TOOLS=ON -DKRC_BUILD_DEMO=OFF -DKRC_INSTALL=OFF >/dev/null
# (Tools on: the targets link the emulator, which comes with the tools; only the
# fuzzer asked for is built.)
nice cmake --build "$build" --target "fuzz_$target"

corpus="$build/corpus/$target"
findings="$build/findings/$target"
mkdir -p "$corpus" "$findings"
cp -n Fuzz/corpus/"$target"/* "$corpus"/ 2>/dev/null || true
dict=()
[ -f "Fuzz/dict/$target.dict" ] && dict=(-dict="Fuzz/dict/$target.dict")

export ASAN_OPTIONS="${ASAN_OPTIONS:-abort_on_error=1:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
exec nice "$build/Fuzz/fuzz_$target" "$corpus" -max_total_time="$seconds" \
  -artifact_prefix="$findings/" -timeout=10 -rss_limit_mb=2048 -max_len=65536 \
  -print_final_stats=1 "${dict[@]}" "$@"
