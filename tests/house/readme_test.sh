#!/usr/bin/env bash
# The README's commands work: every ```sh block is run, in order, from the project's root. What CI
# runs as a step of its own is left out. Blocks of ```cmake and ```cpp show
# lines of tests/consumer, which is built by a test.
# usage: readme_test.sh SOURCE_DIR
set -euo pipefail
source_dir=$1
cd "$source_dir"

# blocks <language>: the lines of the README's blocks in that language.
blocks() { awk -v fence="^\`\`\`$1\$" '$0 ~ fence {inside = 1; next} /^```/ {inside = 0} inside' README.md; }

failed=0
while read -r line; do
  [ -n "$line" ] || continue
  grep -qF -- "$line" tests/consumer/CMakeLists.txt tests/consumer/main.cpp || {
    printf 'README shows a line that no consumer test builds: %s\n' "$line"
    failed=1
  }
done < <(blocks cmake; blocks cpp)

# Commands may write below $HOME.
export CCACHE_DIR=${CCACHE_DIR:-$HOME/.cache/ccache}
HOME=$(mktemp -d)
export HOME
trap 'rm -rf "$HOME"' EXIT
count=0
while read -r command; do
  case $command in
    '' | '#'* | ./test.sh* | ctest* | scripts/fuzz.sh* | .ci/run*) continue ;;
  esac
  printf '$ %s\n' "$command"
  count=$((count + 1))
  bash -euc "$command" </dev/null || {
    printf 'README command failed: %s\n' "$command"
    failed=1
  }
done < <(blocks sh)
printf '%d commands of the README were run\n' "$count"
[ "$count" -gt 0 ] || failed=1
exit $failed
