#!/usr/bin/env bash
# Runs clang-tidy over the changed .cpp files, or over those given.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
. "$root/scripts/sources.sh"

cd "$root"
if [ $# -gt 0 ]; then
  files=$(printf '%s\n' "$@")
else
  files=$(changed_cpp_sources) || { say "clang-tidy: no base to compare with, skipped"; exit 0; }
fi
[ -n "$files" ] || { say "clang-tidy: nothing changed"; exit 0; }

"$root/scripts/setup.sh" build check bench
say "clang-tidy: $(wc -l <<<"$files") files"
cmake --preset tidy >/dev/null
# A file that the build does not know (a consumer's example, say) cannot be analysed.
known=$(grep -o '"file": "[^"]*"' build/tidy/compile_commands.json | cut -d'"' -f4)
while read -r file; do
  if grep -qxF "$root/$file" <<<"$known"; then printf '%s\n' "$file"; fi
done <<<"$files" | xargs -r -n 1 -P "$jobs" clang-tidy -p build/tidy --quiet 2>&1 |
  sed -E '/^[0-9]+ warnings? generated/d'
