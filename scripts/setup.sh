#!/usr/bin/env bash
# Installs the Debian packages that are missing, and does nothing when none is.
# usage: scripts/setup.sh [build|check|bench]...   (default: build)
#   build   what the libraries, the program and their tests are built with
#   check   what CI needs besides: formatter, linter, fuzzer
#   bench   the benchmark library and the peers to measure against
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

build_packages=(g++ cmake ninja-build pkg-config ccache
  libboost-dev libboost-filesystem-dev libeigen3-dev libstb-dev
  libtinygltf-dev libassimp-dev zlib1g-dev libcli11-dev nlohmann-json3-dev libgtest-dev)
check_packages=(clang clang-format clang-tidy git)
bench_packages=(libbenchmark-dev libassimp-dev libembree-dev libfcl-dev libmeshoptimizer-dev
  libopenscenegraph-dev gltfpack)

wanted=()
for list in "${@:-build}"; do
  case $list in
    build) wanted+=("${build_packages[@]}") ;;
    check) wanted+=("${check_packages[@]}") ;;
    bench) wanted+=("${bench_packages[@]}") ;;
    *) die "unknown package list '$list' (build, check or bench)" ;;
  esac
done

command -v dpkg-query >/dev/null || die "dpkg is not here: on a system other than Debian, install the
counterparts of these packages by hand: ${wanted[*]}"

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

say "install ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || die "packages are missing and this is neither root nor a system with sudo.
Run as root: apt-get install --no-install-recommends ${missing[*]}"
  as_root=(sudo)
fi
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() {
  ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive apt-get -q "$@" >"$log" 2>&1
}
# The package lists of a fresh system are empty or old, so that a first try may fail.
apt install -y --no-install-recommends "${missing[@]}" ||
  { apt update && apt install -y --no-install-recommends "${missing[@]}"; } || {
  tail -n 4 "$log" >&2
  die "the packages could not be installed; is there a network, and are the package sources right?"
}
