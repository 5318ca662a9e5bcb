#!/usr/bin/env bash
# The main job: installs what is missing, builds, and runs `kivlut demo`, which generates a range
# image of machined parts and writes every map under every mapping, the legend chart, the normal
# map and the Phong shading, with an index.html contact sheet, into OUTPUT_DIR (default:
# demo-output).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

out_dir="${1:-$KIVLUT_ROOT/demo-output}"
kivlut_install_dependencies
kivlut_build "$KIVLUT_ROOT/build/release" -DKIVLUT_BUILD_TESTS=OFF -DKIVLUT_BUILD_BENCHMARKS=OFF
"$KIVLUT_ROOT/build/release/tools/kivlut/kivlut" demo "$out_dir"
echo "Open $out_dir/index.html to see the gallery."
