# Shared by the scripts of this folder; sourced, not run.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# Every Wine process of this repository runs with these; no prefix of the user's own is touched.
export WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64 WINEDLLOVERRIDES="mscoree=;mshtml=;winedbg.exe="
export ZAREXT_WINE_BASE=${ZAREXT_WINE_BASE:-$root/build/wine/base}
unset WINEPREFIX DISPLAY

# A throw-away copy of the base prefix: hard links, but its own registry files, because Wine
# writes those in place. Prints the path.
new_prefix() {
  mkdir -p "$root/build/wine"
  local prefix
  prefix=$(mktemp -d "$root/build/wine/run.XXXXXX")
  cp -al "$ZAREXT_WINE_BASE/." "$prefix/"
  cp --remove-destination "$ZAREXT_WINE_BASE"/*.reg "$prefix/"
  printf '%s\n' "$prefix"
}

# Ends every process of a prefix and deletes it.
drop_prefix() {
  WINEPREFIX=$1 wineserver -k >/dev/null 2>&1 || true
  WINEPREFIX=$1 wineserver -w >/dev/null 2>&1 || true
  rm -rf "$1"
}

configure_and_build() {
  local preset
  for preset in "$@"; do
    cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 ||
      { cat "build/$preset.configure.log"; return 1; }
    cmake --build --preset "$preset" --parallel "$(nproc)"
  done
}
