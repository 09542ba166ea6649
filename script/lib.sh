# Shared by the scripts of this folder; sourced, not run.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# Every Wine process of this repository runs with these; no prefix of the user's own is touched.
# Nothing here has a window: without the drivers for one Wine looks for no desktop, and says nothing about it.
export WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64
export WINEDLLOVERRIDES="mscoree=;mshtml=;winedbg.exe=;winewayland.drv=;winex11.drv="
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

# phase TEXT REMEDY COMMAND...: says what begins, and how long it took when it is over; if it failed, what to do.
phase() {
  local text=$1 remedy=$2 began=$SECONDS
  shift 2
  echo "== $text"
  "$@" || { printf '== FAILED: %s\n   %s\n' "$text" "$remedy" >&2; return 1; }
  echo "   $((SECONDS - began)) s"
}

# configure_and_build PRESET [TARGET...]; ZAREXT_CMAKE_OPTIONS is handed to the first step.
configure_and_build() {
  local preset=$1 options
  shift
  read -r -a options <<<"${ZAREXT_CMAKE_OPTIONS:-}"
  mkdir -p build
  cmake --preset "$preset" "${options[@]}" >"build/$preset.configure.log" 2>&1 ||
    { cat "build/$preset.configure.log"; return 1; }
  cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
}

is_installed() { [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]; }
# Read whole: apt-cache ends with an error where nobody reads on, and that would count as "no".
is_offered() { [[ $(apt-cache policy "$1" 2>/dev/null) =~ Candidate:\ [^\(] ]]; }

# One line in 60 of apt's, so that it is seen to go on.
thin_out() { awk '/^(Get:|Unpacking|Setting up)/ { if (++n % 60 == 0) { print "   " substr($0, 1, 90); fflush() } }'; }

# install_missing NAME...: those of the Debian packages that are missing. "a|b" stands for the first that
# the release offers; "a?" may be missing where it is not offered.
install_missing() {
  local wanted name found missing=() optional=() names=() as_root=
  for wanted in "$@"; do
    found=
    for name in ${wanted//|/ }; do
      if is_installed "${name%\?}"; then found=yes; fi
    done
    [ -z "$found" ] || continue
    if [ "$wanted" = "${wanted%\?}" ]; then missing+=("$wanted"); else optional+=("${wanted%\?}"); fi
  done
  [ "$(id -u)" -eq 0 ] || as_root=sudo
  export DEBIAN_FRONTEND=noninteractive
  if [ ${#missing[@]} -gt 0 ]; then
    phase "the list of packages: some seconds" "Is there a network, and may you use sudo?" \
      $as_root apt-get update -qq
  fi
  for wanted in "${missing[@]}"; do
    for name in ${wanted//|/ }; do
      if is_offered "$name"; then break; fi
    done
    names+=("$name")
  done
  for name in "${optional[@]}"; do
    if is_offered "$name"; then names+=("$name"); fi
  done
  [ ${#names[@]} -gt 0 ] || return 0
  echo "to install: ${names[*]}"
  fetch() {
    (set -o pipefail
      $as_root apt-get install -y --no-install-recommends "${names[@]}" 2>&1 |
        tee build/packages.log | thin_out) || { tail -n 5 build/packages.log; return 1; }
  }
  mkdir -p build
  phase "packages from Debian: a minute or two" \
    "Read build/packages.log. A package that is not offered here has another name in this release: script/bootstrap." fetch
}
