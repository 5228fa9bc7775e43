# shellcheck shell=bash
# Shared by the project's scripts: package installation and the native build.
# Source it; it sets ROOT, BUILD and JOBS.

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD=${BUILD_DIR:-$ROOT/build}
JOBS=${JOBS:-$(nproc)}

# Installs the Debian packages given that are not installed yet.
need_packages() {
  local missing=() package
  local arch
  arch=$(dpkg --print-architecture)
  for package in "$@"; do
    # A name installed for two architectures (multiarch) is ambiguous without one.
    dpkg -s "$package" >/dev/null 2>&1 || dpkg -s "$package:$arch" >/dev/null 2>&1 || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "== installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo=sudo
  if [ -z "${APT_UPDATED:-}" ]; then
    # A mirror in the middle of a sync fails the update of one index; what is needed is
    # usually in the others, and the install below says so plainly when it is not.
    $sudo apt-get update -qq || echo "== warning: apt-get update failed; installing from the package lists there are" >&2
    APT_UPDATED=1
  fi
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
}

# What the native build and its tests need.
# shellcheck disable=SC2034 # used by the scripts that source this file
BASE_PACKAGES=(cmake ninja-build g++ pkg-config libgtest-dev libgmock-dev libdlt-dev dlt-daemon dlt-tools gnuplot-nox libcli11-dev nlohmann-json3-dev
  parallel python3)

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
