#!/usr/bin/env bash
# Plots a trace written by `tessara --trace FILE` to a PNG: the height (y) and
# the vertical speed of every traced entity over simulated time.
#
#   scripts/plot-trace.sh TRACE.csv [OUTPUT.png]
#
# Needs gnuplot (scripts/setup.sh installs gnuplot-nox).
set -euo pipefail

if [ $# -lt 1 ] || [ "$1" = "-h" ] || [ "$1" = "--help" ]; then
  echo "usage: scripts/plot-trace.sh TRACE.csv [OUTPUT.png]" >&2
  exit 2
fi
trace="$1"
output="${2:-${trace%.csv}.png}"
if [ ! -r "$trace" ]; then
  echo "plot-trace: cannot read $trace" >&2
  exit 1
fi
if ! command -v gnuplot >/dev/null 2>&1; then
  echo "plot-trace: gnuplot is missing; run scripts/setup.sh" >&2
  exit 1
fi

# The columns: tick,time,entity,item,x,y,z,vx,vy,vz (with a header line).
entities=$(tail -n +2 "$trace" | cut -d, -f3 | sort -u)
if [ -z "$entities" ]; then
  echo "plot-trace: $trace holds no samples" >&2
  exit 1
fi

script=$(mktemp)
trap 'rm -f "$script"' EXIT
{
  echo "set terminal png size 1200,800"
  echo "set output '$output'"
  echo "set datafile separator ','"
  echo "set key outside right"
  echo "set grid"
  echo "set multiplot layout 2,1 title 'tessara trace: $(basename "$trace")'"
  echo "set xlabel 'simulated time (s)'"
  for panel in "y:6:height y (m)" "vy:9:vertical speed (m/s)"; do
    column=$(echo "$panel" | cut -d: -f2)
    label=$(echo "$panel" | cut -d: -f3)
    echo "set ylabel '$label'"
    plot="plot"
    separator=""
    for entity in $entities; do
      item=$(grep -m1 ",$entity," "$trace" | cut -d, -f4)
      plot="$plot$separator '$trace' using 2:(strcol(3) eq '$entity' ? \$$column : NaN) with lines title '$item ${entity:0:8}…'"
      separator=","
    done
    echo "$plot"
  done
  echo "unset multiplot"
} >"$script"
gnuplot "$script"
echo "plot-trace: wrote $output"
