# Sourced by the scripts beside it: packages, configuring, building.
# shellcheck shell=bash
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(getconf _NPROCESSORS_ONLN)

say() { printf '\n== %s\n' "$*"; }

die() {
  printf '%s\n' "$*" >&2
  exit 1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# need_packages PACKAGE...: installs the Debian packages that are missing. Elsewhere (on macOS), says
# what the package manager has to provide, and goes on if the build tools are there.
need_packages() {
  if ! command -v apt-get >/dev/null; then
    say "Needed from your package manager (on macOS: Homebrew or MacPorts): a C++17 compiler, CMake," \
      "Ninja, Qt 6 and Qt 5.15 (base modules), nginx, curl"
    command -v cmake >/dev/null && command -v ninja >/dev/null || die "Install these first."
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

build_packages=(g++ cmake ninja-build)

# The package with the headers of a Qt major.
qt_package() {
  case $1 in
    6) echo qt6-base-dev ;;
    5) echo qtbase5-dev ;;
  esac
}

# configure QT_MAJOR [CMAKE_OPTION...]: prepares the build directory build/qt5 or build/qt6.
configure() {
  local qt=$1
  shift
  cmake -S "$root" -B "$root/build/qt$qt" -G Ninja -DQT_MAJOR="$qt" -DBUILD_EXAMPLES=ON "$@"
}

# build QT_MAJOR [TARGET...]
build() {
  local qt=$1 targets=()
  shift
  [ $# -gt 0 ] && targets=(--target "$@")
  cmake --build "$root/build/qt$qt" --parallel "$jobs" ${targets[@]+"${targets[@]}"}
}
