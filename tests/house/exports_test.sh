#!/usr/bin/env bash
# The libraries export nothing but public names: every exported symbol belongs to namespace osg or
# morlu, and each name on its path is written in a public header.
# usage: exports_test.sh SOURCE_DIR LIBRARY...
set -euo pipefail
source_dir=$1
shift

# check <library>: reads the public headers, then the demangled symbols.
check() {
  awk -v library="$(basename "$1")" '
    function fail(text) { printf "%s exports a %s: %s\n", library, text, symbol; failed = 1 }

    # The qualified name in a symbol: no template arguments, parameters, result type or operator.
    function qualified_name(text,    i, c, depth, path, n, words) {
      gsub(/\(anonymous namespace\)/, "ANONYMOUS", text)
      sub(/::operator.*/, "::", text)
      for (i = 1; i <= length(text); ++i) {
        c = substr(text, i, 1)
        if (c == "<") ++depth
        else if (c == ">") --depth
        else if (depth == 0 && c == "(") break
        else if (depth == 0) path = path c
      }
      n = split(path, words, " ")
      while (n > 1 && words[n] !~ /::/) --n
      return words[n]
    }

    FILENAME != "-" {
      gsub(/[^A-Za-z0-9_]+/, " ")
      for (i = 1; i <= NF; ++i) is_public[$i] = 1
      next
    }
    {
      symbol = $0
      ++symbols
      sub(/^(vtable|typeinfo name|typeinfo|VTT|guard variable|non-virtual thunk|virtual thunk|construction vtable) (for|to) /, "")
      gsub(/\[abi:[a-z0-9]+\]/, "")
      path = qualified_name($0)
      if (path !~ /^(osg|morlu)::/) { fail("foreign name"); next }
      n = split(path, names, "::")
      for (i = 1; i <= n; ++i) {
        sub(/^~/, "", names[i])
        if (names[i] != "" && !(names[i] in is_public)) { fail("private name"); break }
      }
    }
    END {
      printf "%s: %d exported symbols\n", library, symbols
      exit failed || symbols == 0
    }' "$source_dir"/include/morlu/*.h "$source_dir"/scenegraph/include/osg/*.h \
    "$source_dir"/scenegraph/io/include/osg/io/*.h -
}

failed=0
for library in "$@"; do
  nm -DC --defined-only "$library" | cut -d' ' -f3- | check "$library" || failed=1
done
exit $failed
