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
