#!/usr/bin/env bash
# Builds the fuzz targets and runs each for some seconds, from its corpus.
# usage: scripts/fuzz.sh [SECONDS [TARGET...]]      (60 seconds, all targets)
# New inputs land in build/fuzz/found/<name>; a crash leaves its input in build/fuzz/crashes.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

seconds=${1:-60}
[ $# -eq 0 ] || shift
"$root/scripts/setup.sh" build check
cd "$root"
if [ $# -eq 0 ]; then
  for source in fuzz/*_fuzz.cpp; do set -- "$@" "$(basename "$source" _fuzz.cpp)"; done
fi
build fuzz "${@/%/_fuzz}"
mkdir -p build/fuzz/crashes
for name in "$@"; do
  mkdir -p "build/fuzz/found/$name"
  say "fuzz $name for $seconds seconds"
  "build/fuzz/bin/${name}_fuzz" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -verbosity=0 -artifact_prefix=build/fuzz/crashes/ \
    "build/fuzz/found/$name" "fuzz/corpus/$name" || die "fuzz target $name failed; see build/fuzz/crashes"
done
