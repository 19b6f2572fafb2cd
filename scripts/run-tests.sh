#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest.
# Usage: scripts/run-tests.sh [plain|asan|tsan] [extra ctest arguments]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
flavour="${1:-plain}"
shift || true
"$root/scripts/setup.sh"
dir="$("$root/scripts/build.sh" "$flavour" | tail -n 1)"
case "$flavour" in
  tsan) export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1 second_deadlock_stack=1 suppressions=$root/tests/tsan.supp}" ;;
  asan) export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}" UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1}"
        export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$root/tests/lsan.supp}" ;;
esac
cd "$dir"
ctest --output-on-failure -j "${TESSARA_JOBS:-$(nproc)}" "$@"
