# shellcheck shell=bash disable=SC2154
# Lists of our own source files. Sourced, never run.

# cpp_sources: every C++ file of the project, tracked or new, one a line, from the root.
cpp_sources() {
  git -C "$root" ls-files --cached --others --exclude-standard -- '*.h' '*.cpp' |
    while read -r file; do [ ! -f "$root/$file" ] || printf '%s\n' "$file"; done
}

# changed_cpp_sources: the .cpp files that differ from the base: $MORLU_BASE, else where this branch
# left origin/main, else the commit before. Fails where history offers none of these.
changed_cpp_sources() {
  local base=${MORLU_BASE:-} head
  head=$(git -C "$root" rev-parse HEAD) || return 1
  [ -n "$base" ] || base=$(git -C "$root" merge-base HEAD origin/main 2>/dev/null || true)
  [ -n "$base" ] && [ "$base" != "$head" ] ||
    base=$(git -C "$root" rev-parse --verify -q HEAD~1) || return 1
  git -C "$root" diff --name-only --diff-filter=d "$base" -- '*.cpp'
}
