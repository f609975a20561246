#!/usr/bin/env bash
# Installs what is missing, builds the program, and shows its main job.
# usage: ./demo.sh          generates the sample assembly, reads it back and describes it
#        ./demo.sh FILE     describes a model of yours and converts it to .glb
. "$(dirname "${BASH_SOURCE[0]}")/scripts/common.sh"

[ $# -le 1 ] || die "usage: ./demo.sh [FILE]"
model=
if [ $# -eq 1 ]; then
  [ -r "$1" ] || die "cannot read '$1'"
  model=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
fi

"$root/scripts/setup.sh" build
build release morlu_program
morlu=$root/build/release/bin/morlu
out=$root/demo-output
mkdir -p "$out"

if [ -n "$model" ]; then
  name=$(basename "${model%.*}").glb
  say "convert $model"
  "$morlu" convert "$model" "$out/$name"
  say "describe both"
  "$morlu" info "$model" "$out/$name"
else
  say "generate the sample assembly"
  "$morlu" generate "$out/sample.glb"
  "$morlu" convert "$out/sample.glb" "$out/sample.osb"
  say "read it back"
  "$morlu" info "$out/sample.glb" "$out/sample.osb"
fi
say "files in $out:"
ls -lh "$out"
