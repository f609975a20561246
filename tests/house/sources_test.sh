#!/usr/bin/env bash
# Every source file in the tree is part of the build, tests above all.
# usage: sources_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
source_dir=$1
build_dir=$2

built=$(grep -o '"file": "[^"]*"' "$build_dir/compile_commands.json" | cut -d'"' -f4)
# Projects of their own, and what other presets build.
elsewhere="^$source_dir/(tests/consumer|bench)/"
failed=0
count=0
while read -r file; do
  [[ $file =~ $elsewhere ]] && continue
  count=$((count + 1))
  grep -qxF -- "$file" <<<"$built" || {
    printf 'not part of the build: %s\n' "${file#"$source_dir"/}"
    failed=1
  }
done < <(find "$source_dir"/{scenegraph,src,tools,tests,fuzz} -name '*.cpp')
printf '%d sources looked up\n' "$count"
[ "$count" -gt 0 ] || failed=1

# A test file that holds no test, or whose name hides it from its room.
while read -r file; do
  case $file in
    *_test.cpp) ;;
    */support/*) ;;
    *)
      printf 'a file with tests that is not named *_test.cpp: %s\n' "${file#"$source_dir"/}"
      failed=1
      ;;
  esac
done < <(grep -rlE '^(TEST|TEST_F|TEST_P|TYPED_TEST)\(' "$source_dir/tests" --include='*.cpp')
exit $failed
