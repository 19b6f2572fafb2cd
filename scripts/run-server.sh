#!/usr/bin/env bash
# Installs what is missing, builds, and runs the headless server on the demo
# world. Extra arguments go to tessara (default: --headless --ticks 600).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"$root/scripts/setup.sh"
"$root/scripts/build.sh" plain >/dev/null
cd "$root/build/run"
if [ "$#" -eq 0 ]; then set -- --headless --ticks 600; fi
exec ./tessara "$@"
