#!/usr/bin/env bash
# The main job: installs what is missing, builds, and colours a generated range image under every
# colour map, writing PNGs to OUTPUT_DIR (default: demo-output).
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

out_dir="${1:-$KIVLUT_ROOT/demo-output}"
kivlut_install_dependencies
kivlut_build "$KIVLUT_ROOT/build/release" -DKIVLUT_BUILD_TESTS=OFF
"$KIVLUT_ROOT/build/release/examples/colour_range_image" "$out_dir"
