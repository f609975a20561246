#!/usr/bin/env bash
# A project of somebody else finds the installed tree, by CMake package and by pkg-config, builds
# against it, and runs from it alone, also after the tree has been moved.
# usage: consumer_test.sh SOURCE_DIR BUILD_DIR CXX LIBDIR GENERATOR
set -euo pipefail
source_dir=$1
build_dir=$2
cxx=$3
libdir=$4
generator=$5

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build_dir" --prefix "$work/first" >"$work/install.log"
mv "$work/first" "$work/prefix"
prefix=$work/prefix

runs_from_prefix() {
  "$@"
  if ldd "$1" | grep libmorlu | grep -vF "$prefix/"; then
    echo "$1 does not take its libraries from the installed tree"
    exit 1
  fi
}

# optimises <consumer>: it takes a scene and writes another.
"$prefix/bin/morlu" generate "$work/in.osb" --parts 20
optimises() {
  runs_from_prefix "$1" "$work/in.osb" "$work/out.osb"
  "$prefix/bin/morlu" info "$work/out.osb"
  rm "$work/out.osb"
}

echo "by CMake package"
cmake -S "$source_dir/tests/consumer" -B "$work/build" -G "$generator" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" >"$work/configure.log" || { cat "$work/configure.log"; exit 1; }
cmake --build "$work/build"
optimises "$work/build/consumer"

echo "by pkg-config"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
# shellcheck disable=SC2046  # the flags are words
"$cxx" -std=c++20 "$source_dir/tests/consumer/main.cpp" -o "$work/consumer" \
  $(pkg-config --cflags --libs morlu morlu-scenegraph morlu-io) -Wl,-rpath,"$prefix/$libdir"
optimises "$work/consumer"

echo "the installed program"
runs_from_prefix "$prefix/bin/morlu" --version
