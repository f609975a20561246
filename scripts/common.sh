# shellcheck shell=bash
# Shared by the scripts: where the project stands, how they speak, how many jobs they run.
# Sourced, never run.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc 2>/dev/null || echo 2)

say() { printf '==> %s\n' "$*"; }
die() {
  printf 'error: %s\n' "$*" >&2
  exit 1
}

# build <preset> [target...]: configures where needed, builds, keeps quiet about what is up to date.
build() {
  local preset=$1
  shift
  cd "$root"
  if [ ! "build/$preset/build.ninja" -nt CMakePresets.json ]; then
    say "configure $preset"
    cmake --preset "$preset" >/dev/null || die "cmake --preset $preset failed"
    touch "build/$preset/build.ninja"
  fi
  say "build $preset${*:+: $*}"
  [ $# -gt 0 ] || set -- all
  cmake --build --preset "$preset" -j "$jobs" --target "$@" || die "the $preset build failed"
}
