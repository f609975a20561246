#!/usr/bin/env bash
# Installs what is missing, builds the program, and shows its main job: a scene in, the same scene in
# few draw calls out.
# usage: ./demo.sh          generates the sample assembly, optimises it, bakes its light, draws it all
#        ./demo.sh FILE     the same with a model of yours
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

if [ -z "$model" ]; then
  model=$out/sample.glb
  # From one and the same place; of other models a view shows the whole.
  view=(--up 0,0,1 --eye 52,-64,44 --target 0,0,0)
  say "generate the sample assembly"
  "$morlu" generate "$model"
else
  view=()
fi

name=$(basename "${model%.*}")
optimised=$out/$name-optimised.glb
baked=$out/$name-baked.glb
say "optimise $model"
# The id map is written where the program works.
cd "$out"
"$morlu" optimise "$model" -o "$optimised" --params 'opt(1),maxtris(5000),idmap(demo)' --table

say "bake into the vertices of $model how open they are"
"$morlu" optimise "$model" -o "$baked" --params 'opt(1),maxtris(5000),ambientocclusion(3)'

say "draw it, before and after, and baked"
# draw <model> <picture>: a model of points or lines has nothing to draw.
draw() {
  "$morlu" render "$1" -o "$2" ${view[@]+"${view[@]}"} --size 1280x800 --samples 3 ||
    say "no picture of $1"
}
rm -f "$out/$name"-{before,after,baked}.png
draw "$model" "$out/$name-before.png"
draw "$optimised" "$out/$name-after.png"
draw "$baked" "$out/$name-baked.png"
say "files in $out:"
ls -lh "$out"
[ ! -e "$out/$name-after.png" ] || say "the pictures: $out/$name-{before,after,baked}.png"
