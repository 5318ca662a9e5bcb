#!/usr/bin/env bash
# Builds the benchmarks and runs each in a process of its own (so that the peak-memory counter is
# its own), then prints nanoseconds per pixel, peak extra memory, and the ratio of every mapping to
# the anchors of the same pixel type: memcpy of the output (the floor), normalize + applyColorMap,
# and normalize + equalizeHist + applyColorMap.
#   scripts/bench.sh [REPETITIONS]   (default 3; the median is used)
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

repetitions="${1:-3}"
kivlut_install_dependencies
kivlut_build "$KIVLUT_ROOT/build/release" -DKIVLUT_BUILD_TESTS=OFF
bench="$KIVLUT_ROOT/build/release/bench/kivlut_bench"
results="$(mktemp)"
trap 'rm -f "$results"' EXIT

for name in $("$bench" --benchmark_list_tests); do
  "$bench" --benchmark_filter="^${name}\$" --benchmark_repetitions="$repetitions" \
    --benchmark_report_aggregates_only=true --benchmark_format=csv 2>/dev/null |
    grep "_median\"" >> "$results" || true
done

# CSV: name,iterations,real_time,cpu_time,time_unit,...,peak_extra_MiB,pixels
awk -F, '
  function type_of(name) { return name ~ /\/2_median/ ? "u16" : (name ~ /\/5_median/ ? "f32" : "") }
  {
    name = $1; gsub(/"/, "", name)
    ms = $3; unit = $5; gsub(/"/, "", unit)
    if (unit == "us") ms /= 1000; else if (unit == "ns") ms /= 1e6; else if (unit == "s") ms *= 1000
    n = split(name, parts, "/"); base = parts[1]
    t = type_of(name)
    time[name] = ms; extra[name] = $(NF - 1); order[++count] = name
    if (base == "BM_Anchor_Memcpy") floor_ms = ms
    if (base == "BM_Anchor_NormalizeApplyColorMap") linear_anchor[t] = ms
    if (base == "BM_Anchor_NormalizeEqualizeApplyColorMap") equal_anchor[t] = ms
  }
  END {
    pixels = 4096 * 3000
    printf "%-46s %9s %9s %10s %9s %9s %9s\n", "benchmark", "ms", "ns/px", "extraMiB", "x memcpy", "x lin", "x equ"
    for (i = 1; i <= count; ++i) {
      name = order[i]; t = type_of(name)
      lin = (t in linear_anchor) ? sprintf("%.2f", time[name] / linear_anchor[t]) : "-"
      equ = (t in equal_anchor) ? sprintf("%.2f", time[name] / equal_anchor[t]) : "-"
      printf "%-46s %9.2f %9.3f %10.1f %9.2f %9s %9s\n", name, time[name], time[name] * 1e6 / pixels,
             extra[name], time[name] / floor_ms, lin, equ
    }
  }' "$results"
