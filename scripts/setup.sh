#!/usr/bin/env bash
# Installs everything the build, the tests and the benchmarks need, from Debian's
# packages, and fetches the Dear ImGui source package into .deps/.
# With --fuzz it also installs clang and its fuzzing runtime (scripts/run-fuzz.sh).
# Safe to run again: it installs only what is missing and fetches only once.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
deps="$root/.deps"

packages=(
  build-essential g++ cmake ninja-build pkg-config dpkg-dev
  libglm-dev nlohmann-json3-dev zlib1g-dev libfyaml-dev
  libglfw3-dev libvulkan-dev vulkan-validationlayers mesa-vulkan-drivers glslc
  libstb-dev libgtest-dev libgmock-dev libbenchmark-dev libbullet-dev
  gnuplot-nox fonts-dejavu-core fonts-open-sans fonts-symbola gcovr
  xvfb xauth x11-apps
  chromium libopenal-dev libsndfile1-dev sox
)
# The webview program (tools/webview/) runs on Node.js; a machine that has it
# from elsewhere keeps its own.
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
  packages+=(nodejs npm)
fi

if [ "${1:-}" = "--fuzz" ]; then
  packages+=(clang libclang-rt-dev)
fi

sudo_cmd=()
if [ "$(id -u)" != 0 ]; then
  if command -v sudo >/dev/null 2>&1; then sudo_cmd=(sudo); else
    echo "setup: not root and no sudo; install these packages by hand: ${packages[*]}" >&2
  fi
fi

export DEBIAN_FRONTEND=noninteractive
updated=0
apt_update() {
  if [ "$updated" = 0 ]; then
    echo "setup: refreshing the package lists"
    "${sudo_cmd[@]}" apt-get update -q >/dev/null
    updated=1
  fi
}

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ "${#missing[@]}" -gt 0 ]; then
  apt_update
  echo "setup: installing ${missing[*]}"
  "${sudo_cmd[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null
fi

# Dear ImGui: Debian's binary package is a static library built with 16-bit ImWchar,
# which cannot go into a shared object, so we build the source package ourselves.
imgui_dir="$deps/imgui"
if [ ! -f "$imgui_dir/imgui.cpp" ]; then
  src_list=/etc/apt/sources.list.d/tessara-deb-src.sources
  if ! apt-get source --print-uris imgui >/dev/null 2>&1; then
    # Derive deb-src entries from the machine's own configured Debian sources.
    tmp="$(mktemp)"
    for f in /etc/apt/sources.list.d/*.sources; do
      [ -f "$f" ] || continue
      [ "$f" = "$src_list" ] && continue
      # deb822 stanzas: keep those whose Types include deb, turn them into deb-src.
      awk 'BEGIN { RS = "" }
           $0 ~ /(^|\n)Types:([^\n]*[ \t])?deb([ \t]|\n|$)/ && $0 ~ /debian/ {
             n = split($0, line, "\n")
             for (i = 1; i <= n; i++) {
               if (line[i] ~ /^Types:/) line[i] = "Types: deb-src"
               print line[i]
             }
             print ""
           }' "$f" >>"$tmp"
    done
    if [ -f /etc/apt/sources.list ]; then
      grep -E '^[[:space:]]*deb[[:space:]]' /etc/apt/sources.list | grep debian \
        | sed -E 's/^[[:space:]]*deb[[:space:]]/deb-src /' >"$tmp.list" || true
      if [ -s "$tmp.list" ]; then
        "${sudo_cmd[@]}" cp "$tmp.list" /etc/apt/sources.list.d/tessara-deb-src.list
      fi
      rm -f "$tmp.list"
    fi
    if [ -s "$tmp" ]; then
      "${sudo_cmd[@]}" cp "$tmp" "$src_list"
    fi
    rm -f "$tmp"
    updated=0
    apt_update
  fi
  echo "setup: fetching the imgui source package"
  rm -rf "$deps/imgui-fetch"
  mkdir -p "$deps/imgui-fetch"
  # apt warns that root downloads without its sandbox user; that is expected here.
  (cd "$deps/imgui-fetch" && apt-get source -q imgui 2>&1 >/dev/null | grep -v "unsandboxed" >&2 || true)
  unpacked="$(find "$deps/imgui-fetch" -mindepth 1 -maxdepth 1 -type d -name 'imgui-*' | head -n 1)"
  if [ -z "$unpacked" ] || [ ! -f "$unpacked/imgui.cpp" ]; then
    echo "setup: the imgui source package did not unpack as expected" >&2
    exit 1
  fi
  rm -rf "$imgui_dir"
  mv "$unpacked" "$imgui_dir"
  rm -rf "$deps/imgui-fetch"
fi

# The webview program's packages, exactly as its lockfile pins them; the
# browser is Debian's chromium, so nothing downloads one.
webview="$root/tools/webview"
stamp="$webview/node_modules/.package-lock.json"
if [ ! -f "$stamp" ] || [ "$webview/package-lock.json" -nt "$stamp" ]; then
  echo "setup: installing the webview program's packages"
  (cd "$webview" && PUPPETEER_SKIP_DOWNLOAD=1 npm ci --omit=dev --no-audit --no-fund --loglevel=error >/dev/null)
fi

echo "setup: all dependencies present"
