# shellcheck shell=bash
# Shared by the project's scripts: package installation and the native build.
# Source it; it sets ROOT, BUILD and JOBS.

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
JOBS=${JOBS:-$(nproc)}

# Installs the Debian packages given that are not installed yet.
need_packages() {
  local missing=() package
  for package in "$@"; do
    dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "== installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  if [ -z "${APT_UPDATED:-}" ]; then
    $sudo apt-get update -qq
    APT_UPDATED=1
  fi
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

# What the native build and its tests need.
# shellcheck disable=SC2034 # used by the scripts that source this file
BASE_PACKAGES=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libdlt-dev dlt-daemon dlt-tools gnuplot-nox)

# Configures the native tree in $BUILD with the dev preset (CMakePresets.json).
configure_native() {
  cmake -S "$ROOT" --preset dev -B "$BUILD" >/dev/null
}

# Configures and builds the native tree in $BUILD.
build_native() {
  echo "== build ($BUILD)"
  configure_native
  cmake --build "$BUILD" -j "$JOBS"
}
