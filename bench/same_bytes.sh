#!/bin/bash
# Checks that two builds of the tool write the same bytes: every corpus JSON
# document, the examples and generated records are written as JSON and as
# node files of stream versions 1 to 3, each node file is read back to JSON,
# and every tree is printed, once by each tool; the outputs must be equal.
# For a change to the data tree's storage, where nothing written may move.
#
# usage: bench/same_bytes.sh BEFORE_NVK AFTER_NVK [WORKDIR]
# A tool over another library is a wrapper script that sets LD_LIBRARY_PATH.
set -u
before=$(realpath "$1") after=$(realpath "$2") work=${3:-/tmp/nvk-same-bytes}
here=$(cd "$(dirname "$0")/.." && pwd)
corpus=$here/../shared/corpus/json
rm -rf "$work" && mkdir -p "$work/gen"
for seed in 1 2 3 4 5 6 7 8; do python3 "$here/bench/same_bytes_gen.py" "$work/gen/gen$seed.json" $seed; done
count=0
for f in "$corpus"/bench/*.json "$corpus"/suite/*.json "$work"/gen/*.json "$here"/examples/*.json; do
  [ -f "$f" ] || continue
  name=$(basename "$(dirname "$f")")/$(basename "$f" .json)
  for side in before after; do
    tool=$before; [ $side = after ] && tool=$after
    out=$work/$side/$name; mkdir -p "$out"
    # Relative output names, so that the tools' messages match too.
    (cd "$out"
     "$tool" json "$f" > print.txt 2> err.txt; echo $? > rc
     "$tool" json "$f" --to-json j.json > /dev/null 2>> err.txt
     for v in 1 2 3; do
       "$tool" json "$f" --to-bin b$v.nvkb --stream-version $v > /dev/null 2>> err.txt
       "$tool" bin b$v.nvkb --to-json bj$v.json > /dev/null 2>> err.txt
       "$tool" bin b$v.nvkb > bprint$v.txt 2>> err.txt
     done)
  done
  count=$((count + 1))
done
if diff -r "$work/before" "$work/after" > "$work/diff.txt"; then
  echo "same bytes: $count documents, $(find "$work/after" -type f | wc -l) outputs"
else
  echo "different bytes: see $work/diff.txt"; head -20 "$work/diff.txt"; exit 1
fi
