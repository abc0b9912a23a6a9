#!/usr/bin/env bash
# Set-up, build, and the main job on the bundled examples.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default
nvk=build/default/nvk
set -x
"$nvk" version
"$nvk" help
credentials=$("$nvk" credentials new --user alice --domain LAB --password secret --role Viewer --role Group:Chemists --flags 0x4)
"$nvk" credentials show "$credentials"
"$nvk" perceive examples/clean-and-score.json
"$nvk" perceive examples/clean-and-score.json --json
"$nvk" layout examples/clean-and-score.json -o build/default/clean-and-score.laid-out.json --svg build/default/clean-and-score.svg
"$nvk" move build/default/clean-and-score.laid-out.json --ids 6,7 --right 40 --down 20 -o build/default/clean-and-score.moved.json
"$nvk" svg build/default/clean-and-score.moved.json -o build/default/clean-and-score.moved.svg
"$nvk" json examples/stations.json
"$nvk" json examples/bare-members.json
"$nvk" json examples/stations.json --to-json build/stations-roundtrip.json
"$nvk" json build/stations-roundtrip.json
"$nvk" json examples/stations.json --to-bin build/stations.nvkb
"$nvk" bin build/stations.nvkb
"$nvk" json examples/bare-members.json --to-bin build/bare-members-v1.nvkb --stream-version 1
"$nvk" bin build/bare-members-v1.nvkb --to-json build/bare-members-from-bin.json
"$nvk" json examples/broken.json || echo "(broken.json is refused on purpose, exit status $?)"
