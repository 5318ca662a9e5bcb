#!/usr/bin/env bash
# Builds the benchmarks and runs each in a process of its own, then prints for every benchmark its
# time, nanoseconds per pixel, the memory one call needs beyond its inputs and outputs with the
# budget it is allowed, its ratio to a memcpy of a 3-byte-per-pixel output (the memory floor) and
# to the OpenCV anchor that does the nearest work on the same data, measured in the same run.
#   scripts/bench.sh [REPETITIONS]   (default 3; the median is used)
# Environment: KIVLUT_BENCH_FILTER, a regular expression that picks benchmarks by name (default
# all); KIVLUT_BENCH_BUILD_DIR, the build folder (default build/release).
#
# Memory check: a benchmark that reports a budget (budget_MiB: the copies, work arrays and new
# results its mapping is described to make) fails the run when its peak_extra_MiB exceeds that
# budget by more than a fixed allowance of 4 MiB, which covers the fixed-size tables (colour
# tables by raw value, up to 256 KiB each; histograms; equalisation records), the worker threads'
# stacks and task pools, and rounding to whole pages. The script then names each such benchmark
# and exits with status 1.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

repetitions="${1:-3}"
filter="${KIVLUT_BENCH_FILTER:-.}"
build_dir="${KIVLUT_BENCH_BUILD_DIR:-$KIVLUT_ROOT/build/release}"
allowance_mib=4

kivlut_install_dependencies
kivlut_build "$build_dir" -DKIVLUT_BUILD_TESTS=OFF -DKIVLUT_BUILD_BENCHMARKS=ON
bench="$build_dir/bench/kivlut_bench"
results="$(mktemp)"
trap 'rm -f "$results"' EXIT

# With one repetition Google Benchmark reports the run itself; with more, aggregates, of which the
# median is kept.
if [ "$repetitions" -gt 1 ]; then
  aggregate_args=(--benchmark_repetitions="$repetitions" --benchmark_report_aggregates_only=true)
  keep='^name,|_median"'
else
  aggregate_args=()
  keep='^name,|^"'
fi
for name in $("$bench" --benchmark_list_tests | grep -E -- "$filter"); do
  "$bench" --benchmark_filter="^${name}\$" "${aggregate_args[@]}" --benchmark_format=csv \
    2>/dev/null | grep -E "$keep" >> "$results" || true
done

# CSV, a header before each benchmark's line: name,iterations,real_time,cpu_time,time_unit,...
# and then the benchmark's own counters (peak_extra_MiB, budget_MiB, pixels) where it reports them.
awk -F, -v allowance="$allowance_mib" '
  # The anchor each mapping is compared with: /2 and /5 mark unsigned 16-bit and float range data,
  # /8 and /16 the bit depth of grey images.
  function anchor_of(key,    t) {
    t = key; sub(/^[^\/]*/, "", t)
    if (key ~ /^BM_ColorMapLUT_(DataRange|Bounds|ColourRange|Para_Segmented)\//) return "BM_Anchor_NormalizeEqualizeApplyColorMap" t
    if (key ~ /^BM_LinearColorMapLUT_/) return "BM_Anchor_NormalizeApplyColorMap" t
    if (key ~ /^BM_SetColorLUT_FloatArray/) return "BM_Anchor_NormalizeEqualizeApplyColorMap/5"
    if (key ~ /^BM_LinearSetColorLUT_FloatArray/) return "BM_Anchor_NormalizeApplyColorMap/5"
    if (key == "BM_SetColorLUT_Equalised/8") return "BM_Anchor_EqualizeApplyColorMap8"
    if (key == "BM_SetColorLUT_Equalised/16") return "BM_Anchor_NormalizeEqualizeApplyColorMap16"
    if (key == "BM_SetColorLUT_Banded/8" || key == "BM_LinearSetColorLUT_Grey8") return "BM_Anchor_ApplyColorMap8"
    if (key == "BM_SetColorLUT_Banded/16" || key == "BM_LinearSetColorLUT_Grey16") return "BM_Anchor_NormalizeApplyColorMap16"
    if (key ~ /^BM_ColorBlend/) return "BM_Anchor_AddWeighted"
    # Shading runs on a 2048 x 1500 float image: the normal map of given normals against a memcpy
    # of its colours, the normal map of a range image against the ComputeNormals it starts with,
    # the Phong lighting against its base colouring, and one split of the Phong body against the
    # whole lighting call (the share of the call that the copies of one split take).
    if (key == "BM_SetColorNormalMap_Normals") return "BM_Anchor_ShadingMemcpy"
    if (key == "BM_SetColorNormalMapPhong") return "BM_ComputeNormals"
    if (key == "BM_SetColorNormalMap_Lighting") return "BM_Anchor_ShadingBaseColouring"
    if (key ~ /^BM_PhongBodySplit_/) return "BM_SetColorNormalMap_Lighting"
    # kivlut over a folder of 100 frames with one worker per core, against one worker.
    if (key ~ /^BM_ToolFolder\//) return "BM_ToolFolderSerial" t
    return ""
  }
  /^name,/ {
    extra_col = 0; budget_col = 0; pixels_col = 0; error_col = 0
    for (c = 1; c <= NF; ++c) {
      h = $c; gsub(/"/, "", h)
      if (h == "peak_extra_MiB") extra_col = c
      if (h == "budget_MiB") budget_col = c
      if (h == "pixels") pixels_col = c
      if (h == "error_occurred") error_col = c
    }
    next
  }
  {
    key = $1; gsub(/"/, "", key); sub(/_median$/, "", key); sub(/\/real_time$/, "", key)
    if (error_col && $error_col == "true") { failed[key] = 1; order[++count] = key; next }
    ms = $3; unit = $5; gsub(/"/, "", unit)
    if (unit == "us") ms /= 1000; else if (unit == "ns") ms /= 1e6; else if (unit == "s") ms *= 1000
    time[key] = ms; order[++count] = key
    extra[key] = (extra_col && $extra_col != "") ? $extra_col : ""
    budget[key] = (budget_col && $budget_col != "") ? $budget_col : ""
    pixels[key] = pixels_col ? $pixels_col : 0
  }
  END {
    # Per pixel, so that benchmarks on frames of another size compare fairly with the floor.
    floor_ms = time["BM_Anchor_Memcpy"]
    floor_px = pixels["BM_Anchor_Memcpy"] > 0 ? pixels["BM_Anchor_Memcpy"] : 4096 * 3000
    printf "%-42s %9s %8s %9s %9s %6s %9s %9s  %s\n", "benchmark", "ms", "ns/px", "extraMiB",
           "budgetMiB", "memory", "x memcpy", "x anchor", "anchor"
    over = 0
    for (i = 1; i <= count; ++i) {
      key = order[i]
      if (key in failed) { printf "%-42s %s\n", key, "failed (see the benchmark run)"; ++errors; continue }
      anchor = anchor_of(key)
      ratio = (anchor != "" && (anchor in time)) ? sprintf("%.2f", time[key] / time[anchor]) : "-"
      px = pixels[key] > 0 ? pixels[key] : 4096 * 3000
      verdict = "-"
      if (budget[key] != "" && extra[key] != "") {
        verdict = "ok"
        if (extra[key] + 0 > budget[key] + allowance) {
          verdict = "OVER"
          overs[++over] = sprintf("%s (%.1f MiB > %.1f + %d MiB)", key, extra[key], budget[key], allowance)
        }
      }
      printf "%-42s %9.2f %8.3f %9s %9s %6s %9.2f %9s  %s\n", key, time[key], time[key] * 1e6 / px,
             (extra[key] == "" ? "-" : sprintf("%.1f", extra[key])),
             (budget[key] == "" ? "-" : sprintf("%.1f", budget[key])), verdict,
             (floor_ms > 0 ? (time[key] / px) / (floor_ms / floor_px) : 0), ratio,
             (anchor == "" ? "-" : anchor)
    }
    printf "memory: one call beyond its inputs and outputs; over budget = above budget + %d MiB\n", allowance
    for (i = 1; i <= over; ++i) printf "bench.sh: over its memory budget: %s\n", overs[i] > "/dev/stderr"
    if (over > 0 || errors > 0) exit 1
  }' "$results"
