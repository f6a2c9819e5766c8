# Sourced by the scripts: messages and packages. How a build is made is in CMakePresets.json.
# Like every script that also runs on macOS, written for its bash 3.2: there "${array[@]}" of an
# empty array is an error under "set -u".
# shellcheck shell=bash
set -euo pipefail

# shellcheck disable=SC2034 # Used by the scripts that source this.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)

say() { printf '\n== %s\n' "$*"; }

die() {
  printf '%s\n' "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# debian_only: ends a script that cannot run on other systems.
debian_only() {
  command -v apt-get >/dev/null || die "$0 is for Debian 12 and 13 only."
}

# need_packages PACKAGE...: installs the Debian packages that are missing. Elsewhere (on macOS), says
# what the package manager has to provide, and goes on if the build tools are there.
need_packages() {
  if ! command -v apt-get >/dev/null; then
    say "Needed from your package manager (on macOS: Homebrew or MacPorts): a C++17 compiler, CMake," \
      "Ninja, Qt 6 or Qt 5.15 (base modules), nginx, curl"
    if ! command -v cmake >/dev/null || ! command -v ninja >/dev/null; then
      die "Install these first."
    fi
    return
  fi
  local package missing=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] \
      || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  say "Installing ${missing[*]}"
  as_root apt-get update -q
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -q -y --no-install-recommends "${missing[@]}"
}

# packages_of PRESET: prints the Debian packages that a build of CMakePresets.json needs.
packages_of() {
  echo g++ cmake ninja-build nettle-dev
  case $1 in
    *qt5) echo qtbase5-dev ;;
    *) echo qt6-base-dev ;;
  esac
  case $1 in asan | fuzz | tidy) echo clang libclang-rt-dev llvm ;; esac
  case $1 in asan | bench-*) echo libbenchmark-dev ;; esac
}
