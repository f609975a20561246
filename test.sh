#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test.
# usage: ./test.sh [ctest arguments]      e.g. ./test.sh -R scenegraph
. "$(dirname "${BASH_SOURCE[0]}")/scripts/common.sh"

"$root/scripts/setup.sh" build
build release
say "test release"
exec ctest --preset release -j "$jobs" "$@"
