#!/usr/bin/env bash
# Installs what is missing, builds the program, and shows its main job.
# usage: ./demo.sh          generates the sample assembly, reads it back, describes and draws it
#        ./demo.sh FILE     describes a model of yours, converts it to .glb and draws it
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
  picture=$out/${name%.glb}.png
  # A model of points or lines has nothing to draw.
  "$morlu" render "$model" -o "$picture" --size 1280x800 || picture=
else
  say "generate the sample assembly"
  "$morlu" generate "$out/sample.glb"
  "$morlu" convert "$out/sample.glb" "$out/sample.osb"
  say "read it back"
  "$morlu" info "$out/sample.glb" "$out/sample.osb"
  say "what a ray from above meets"
  "$morlu" pick "$out/sample.glb" --origin 0,0,1000 --direction 0,0,-1
  picture=$out/sample.png
  "$morlu" render "$out/sample.glb" -o "$picture" --up 0,0,1 --size 1280x800 --samples 3
fi
say "files in $out:"
ls -lh "$out"
[ -z "$picture" ] || say "a picture of it: $picture"
