#!/usr/bin/env bash
# The scaling plot of the README: nanoseconds per pixel against frame size, 640 x 480 to
# 8192 x 6000, for the library and the OpenCV paths, with one worker and with two, each in a
# process of its own (the worker count is read once, when the library is loaded).
#   scripts/bench_plot.sh [OUT.png]   (default docs/performance_scaling.png)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

out="${1:-$KIVLUT_ROOT/docs/performance_scaling.png}"
kivlut_install_packages python3-matplotlib
sizes="640x480,1280x960,2048x1536,4096x3000,8192x6000"
filter='F32_LinearColorMapLUT_B_Bounds|F32_ColorMapLUT_DataRange|U16_LinearColorMapLUT_B_Bounds|Anchor_NormalizeApplyColorMap_(F32|U16)|Anchor_NormalizeEqualizeApplyColorMap_F32'
results="$KIVLUT_ROOT/build/ratios/scaling"
mkdir -p "$results"
runs=()
for workers in 1 2; do
  # The ratio table of each run is printed as it goes; its verdicts do not decide this script.
  "$KIVLUT_ROOT/scripts/bench_ratios.sh" --workers "$workers" --sizes "$sizes" --filter "$filter" \
    --repetitions 3 --json "$results/workers-$workers.json" || true
  runs+=("$workers=$results/workers-$workers.json")
done
/usr/bin/python3 "$KIVLUT_ROOT/scripts/plot_scaling.py" "$out" "${runs[@]}"
echo "bench_plot.sh: wrote $out"
