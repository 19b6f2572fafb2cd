#!/usr/bin/env bash
# Configures and builds the tree. Usage: scripts/build.sh [plain|asan|tsan|coverage] [ninja targets...]
# Build output goes to stderr; the last line on stdout is the build folder.
# plain builds into build/, asan into build-asan/, tsan into build-tsan/,
# coverage (gcov instrumentation, for scripts/coverage.sh) into build-coverage/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
flavour="${1:-plain}"
shift || true
case "$flavour" in
  plain) dir="$root/build"; flags=() ;;
  asan)  dir="$root/build-asan"; flags=(-DTESSARA_ASAN=ON -DTESSARA_BUILD_BENCH=OFF) ;;
  tsan)  dir="$root/build-tsan"; flags=(-DTESSARA_TSAN=ON -DTESSARA_BUILD_BENCH=OFF) ;;
  coverage) dir="$root/build-coverage"; flags=(-DTESSARA_COVERAGE=ON -DTESSARA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug) ;;
  *) echo "usage: scripts/build.sh [plain|asan|tsan|coverage] [targets...]" >&2; exit 2 ;;
esac
jobs="${TESSARA_JOBS:-$(nproc)}"
cmake -S "$root" -B "$dir" -G Ninja "${flags[@]}" >&2
cmake --build "$dir" -j "$jobs" -- "$@" >&2
echo "$dir"
