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
  echo g++ cmake ninja-build
  case $1 in
    *qt5) echo qtbase5-dev ;;
    *) echo qt6-base-dev ;;
  esac
  case $1 in asan | fuzz | tidy) echo clang libclang-rt-dev llvm ;; esac
  case $1 in asan | bench-*) echo libbenchmark-dev ;; esac
}

jobs=$(getconf _NPROCESSORS_ONLN)

# shellcheck disable=SC2034 # Used by the scripts that source this.
build_packages=(g++ cmake ninja-build)

# The build for the sanitizers is also the one that Clang has a look at.
# shellcheck disable=SC2034
asan_packages=(clang libclang-rt-dev llvm)
# shellcheck disable=SC2034
asan_options=(-DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug -DBUILD_TESTING=ON
  "-DUPDATER_SANITIZE=address,undefined")

# The Qt major of a build, and the package with its headers.
qt_of() {
  case $1 in
    qt5) echo 5 ;;
    *) echo 6 ;;
  esac
}
qt_package() {
  case $(qt_of "$1") in
    5) echo qtbase5-dev ;;
    6) echo qt6-base-dev ;;
  esac
}

# configure NAME QT_MAJOR [CMAKE_OPTION...]: prepares the build directory build/NAME.
configure() {
  local name=$1 qt=$2
  shift 2
  cmake -S "$root" -B "$root/build/$name" -G Ninja -DQT_MAJOR="$qt" -DUPDATER_BUILD_EXAMPLES=ON "$@"
}

# build NAME [TARGET...]
build() {
  local name=$1 targets=()
  shift
  [ $# -gt 0 ] && targets=(--target "$@")
  cmake --build "$root/build/$name" --parallel "$jobs" ${targets[@]+"${targets[@]}"}
}

# wait_for SECONDS COMMAND...: waits until the command succeeds.
wait_for() {
  local tries=$(($1 * 10))
  shift
  until "$@"; do
    tries=$((tries - 1))
    [ $tries -gt 0 ] || return 1
    sleep 0.1
  done
}

# free_port: prints a port of 127.0.0.1 that nobody listens on.
free_port() {
  perl -MIO::Socket::INET -e \
    'print IO::Socket::INET->new(Listen => 1, LocalAddr => "127.0.0.1")->sockport'
}
