#!/usr/bin/env bash
# Client mode on a display: run under xvfb-run. A window opens, renders 60
# frames and closes cleanly; a second run is captured from the screen while it
# renders (xwd) and must not be blank, then stops cleanly on Ctrl+C.
# Usage: client_window.sh TESSARA RUN_DIR
set -euo pipefail
tessara="$1"
cd "$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$tessara" --client --frames 60 --size 320x240 --world test_client_window --settings "$work/settings.ini" --screenshot "$work/window.png" > "$work/first.txt" 2>&1 || {
  cat "$work/first.txt"; echo "FAIL: the 60-frame run failed"; exit 1; }
grep -qE "frames: +60 in" "$work/first.txt" || { cat "$work/first.txt"; echo "FAIL: no 60 frames"; exit 1; }
[ -s "$work/window.png" ] || { cat "$work/first.txt"; echo "FAIL: no screenshot of the window"; exit 1; }
echo "60 frames in a window, last one saved: ok"

"$tessara" --client --size 320x240 --world test_client_window --settings "$work/settings.ini" > "$work/second.txt" 2>&1 &
pid=$!
for _ in $(seq 1 100); do
  grep -q "Client mode:" "$work/second.txt" 2>/dev/null && break
  sleep 0.1
done
sleep 2 # a few frames on the screen
xwd -root -silent > "$work/screen.xwd"
kill -INT "$pid"
wait "$pid" || { cat "$work/second.txt"; echo "FAIL: the client did not stop cleanly on Ctrl+C"; exit 1; }

# XWD: a header of big-endian 32-bit words (its size first, the colour count
# 20th), the colour map at 12 bytes an entry, then the pixels.
read -r header ncolors < <(od -An -tu4 --endian=big -N 80 "$work/screen.xwd" | tr -s ' \n' ' ' |
                            awk '{print $1, $20}')
offset=$((header + ncolors * 12))
colours=$(tail -c +$((offset + 1)) "$work/screen.xwd" | od -An -tx4 -v | tr -s ' ' '\n' | sed '/^$/d' | sort -u | wc -l)
echo "distinct colours on the screen: $colours"
[ "$colours" -ge 3 ] || { echo "FAIL: the screen is blank"; exit 1; }
echo "PASS"
