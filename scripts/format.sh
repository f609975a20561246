#!/usr/bin/env bash
# Formats every source file in place, or with --check says which ones are not formatted.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"
. "$root/scripts/sources.sh"

command -v clang-format >/dev/null || "$root/scripts/setup.sh" check
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run -Werror)
cd "$root"
say "clang-format ${mode[*]}"
cpp_sources | xargs -r clang-format "${mode[@]}"
