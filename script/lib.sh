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
  prefix=$(mktemp -d -p "$root/build/wine")
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

# configure_and_build PRESET [TARGET...]
configure_and_build() {
  local preset=$1
  shift
  cmake --preset "$preset" >"build/$preset.configure.log" 2>&1 ||
    { cat "build/$preset.configure.log"; return 1; }
  cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

# Installs those of the Debian packages that are missing.
install_missing() {
  local package missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "installing: ${missing[*]}"
  local as_root=
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  export DEBIAN_FRONTEND=noninteractive
  $as_root apt-get update -qq
  $as_root apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}
