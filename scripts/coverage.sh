#!/usr/bin/env bash
# Line and branch coverage of the whole test suite.
# Usage: scripts/coverage.sh [--report-only] [ctest arguments]
# Builds with gcov instrumentation into build-coverage/, clears the counters, runs
# every test, then prints a table per folder (game/, each game/*/ folder, nerox/,
# host/, modules/, tools/) and writes an HTML report into build-coverage/coverage/.
# Branches that only exceptions or the compiler's own checks take are left out.
# --report-only skips the build and the run and reports the counts of the last run.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
dir="$root/build-coverage"
if [ "${1:-}" = "--report-only" ]; then
  shift
else
  "$root/scripts/setup.sh"
  dir="$("$root/scripts/build.sh" coverage | tail -n 1)"
  find "$dir" -name '*.gcda' -delete
  (cd "$dir" && ctest -j "${TESSARA_JOBS:-$(nproc)}" "$@") ||
    echo "coverage: some tests failed; the figures below still count what ran" >&2
fi

out="$dir/coverage"
rm -rf "$out"
mkdir -p "$out"
echo "coverage: collecting counts with gcovr" >&2
gcovr --root "$root" --object-directory "$dir" \
  --filter "$root/game/" --filter "$root/nerox/" --filter "$root/host/" \
  --filter "$root/modules/" --filter "$root/tools/" \
  --exclude-throw-branches --exclude-unreachable-branches --gcov-ignore-parse-errors \
  -j "${TESSARA_JOBS:-$(nproc)}" \
  --json-summary "$out/summary.json" --html-details "$out/index.html" >/dev/null

python3 - "$out/summary.json" <<'EOF'
import json, sys
files = json.load(open(sys.argv[1]))["files"]
groups = {}
def add(key, f):
    g = groups.setdefault(key, [0, 0, 0, 0])
    g[0] += f["line_covered"]; g[1] += f["line_total"]
    g[2] += f["branch_covered"]; g[3] += f["branch_total"]
for f in files:
    parts = f["filename"].split("/")
    add(parts[0] + "/", f)
    if parts[0] == "game":
        add("game/" + parts[1] + "/" if len(parts) > 2 else "game/ (top level)", f)
    add("all", f)
def pct(a, b):
    return "%6.1f%%" % (100.0 * a / b) if b else "     - "
print("%-24s %8s %8s %8s %8s" % ("folder", "lines", "line %", "branches", "branch %"))
order = sorted(k for k in groups if k != "all") + ["all"]
for k in order:
    lc, lt, bc, bt = groups[k]
    print("%-24s %8d %8s %8d %8s" % (k, lt, pct(lc, lt), bt, pct(bc, bt)))
EOF
echo "coverage: HTML report in $out/index.html" >&2
