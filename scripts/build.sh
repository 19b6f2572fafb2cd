#!/usr/bin/env bash
# Configures and builds the tree. Usage: scripts/build.sh [plain|asan|tsan] [ninja targets...]
# Build output goes to stderr; the last line on stdout is the build folder.
# plain builds into build/, asan into build-asan/, tsan into build-tsan/.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
flavour="${1:-plain}"
shift || true
case "$flavour" in
  plain) dir="$root/build"; flags=() ;;
  asan)  dir="$root/build-asan"; flags=(-DTESSARA_ASAN=ON -DTESSARA_BUILD_BENCH=OFF) ;;
  tsan)  dir="$root/build-tsan"; flags=(-DTESSARA_TSAN=ON -DTESSARA_BUILD_BENCH=OFF) ;;
  *) echo "usage: scripts/build.sh [plain|asan|tsan] [targets...]" >&2; exit 2 ;;
esac
jobs="${TESSARA_JOBS:-$(nproc)}"
cmake -S "$root" -B "$dir" -G Ninja "${flags[@]}" >&2
cmake --build "$dir" -j "$jobs" -- "$@" >&2
echo "$dir"
