#!/usr/bin/env bash
# Builds the benchmarks optimised and measures every figure beside its peer.
# usage: bench/run.sh [--filter REGEX] [--json FILE] [--repetitions N] [--list]
# FILE is taken from the caller's folder. Rows whose result is wrong are marked and fail the run.
here=$PWD
. "$(dirname "${BASH_SOURCE[0]}")/../scripts/common.sh"

"$root/bench/setup.sh"
build bench morlu_bench
cd "$here"
exec "$root/build/bench/bin/morlu_bench" "$@"
