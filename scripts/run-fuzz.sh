#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UBSan into
# build-fuzz/, and runs one of them. Usage:
#   scripts/run-fuzz.sh config|settings|description|state|screen|frames [seconds] [extra libFuzzer flags]
# The corpus grows in build-fuzz/corpus/TARGET; crashes land in build-fuzz/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
target="${1:-}"
seconds="${2:-60}"
shift 2 || shift $# || true
case "$target" in
  config|settings|description|state|screen|frames) ;;
  *) echo "usage: scripts/run-fuzz.sh config|settings|description|state|screen|frames [seconds] [libFuzzer flags]" >&2; exit 2 ;;
esac
"$root/scripts/setup.sh" --fuzz
dir="$root/build-fuzz"
CC=clang CXX=clang++ cmake -S "$root" -B "$dir" -G Ninja -DTESSARA_FUZZ=ON -DTESSARA_ASAN=ON \
  -DTESSARA_BUILD_TESTS=OFF -DTESSARA_BUILD_BENCH=OFF >&2
cmake --build "$dir" -j "${TESSARA_JOBS:-$(nproc)}" --target "${target}_fuzz" >&2
mkdir -p "$dir/corpus/$target"
seeds=()
[ -d "$root/fuzz/seeds/$target" ] && seeds=("$root/fuzz/seeds/$target")
cd "$dir"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$root/fuzz/lsan.supp}"
# The frame reader reports dropped frames on the error stream: keep that out of
# libFuzzer's own output (its reports still come through).
extra=()
[ "$target" = frames ] && extra=(-close_fd_mask=2)
exec "./fuzz/${target}_fuzz" "${extra[@]}" -max_total_time="$seconds" -max_len=8192 -print_final_stats=1 "$@" \
  "corpus/$target" "${seeds[@]}"
