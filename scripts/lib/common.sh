# What the scripts share. Sourced, never run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1

say() { printf '\n== %s\n' "$*"; }
die() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# need GROUP...: installs the Debian packages of these groups (scripts/lib/packages) that are not there yet.
need() {
  local missing=() group package only want
  while read -r group package only; do
    [ -z "$only" ] || [[ ",$only," == *",$(dpkg --print-architecture),"* ]] || continue
    for want in "$@"; do
      [ "$group" = "$want" ] || continue
      dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
  done < <(grep -v '^#' scripts/lib/packages)
  [ ${#missing[@]} -eq 0 ] && return 0
  say "installing ${missing[*]}"
  local root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "these Debian packages are missing and only root can install them: ${missing[*]}"
    root=(sudo)
  fi
  "${root[@]}" apt-get update -qq || true
  DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
    die "apt-get could not install: ${missing[*]}"
}

# build PRESET [TARGET...]: configures once, builds, and stays quiet unless something is wrong.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  say "building the $preset preset"
  cmake --preset "$preset" >"$log" 2>&1 || { cat "$log"; die "configuring $preset failed"; }
  cmake --build --preset "$preset" ${1:+--target "$@"} >"$log" 2>&1 || { cat "$log"; die "building $preset failed"; }
}
