#!/usr/bin/env bash
# The speed table: every mapping with a target, divided by the OpenCV path a user would write for
# the same picture, measured in one process that runs all cases interleaved in random order and
# repeated (medians), at 160 x 120, 640 x 480 and 4096 x 3000. It prints each ratio beside its
# target and exits with status 1 when one is missed.
#   scripts/bench_ratios.sh [options]
#     --commit REV       measure the library as it was at REV (the cases are always today's)
#     --before FILE      a JSON of an earlier run (--json of another run): adds its ratios to the
#                        table and checks that no 16-bit range mapping got slower
#     --json FILE        keep the benchmark's JSON (default: a temporary file)
#     --repetitions N    rounds per case (default 5)
#     --workers N        one worker count for library, oneTBB, OpenMP and OpenCV (default: one per
#                        core, the library's own default)
#     --sizes LIST       frame sizes, e.g. 640x480,8192x6000 (default 160x120,640x480,4096x3000)
#     --filter REGEX     only the cases whose names match
# The library is built and installed under build/ratios/, then the benchmark in bench/ratios/ is
# built against that installation, so that any commit is measured by the same cases.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

commit=""
before=""
json=""
repetitions=5
workers=""
sizes="160x120,640x480,4096x3000"
filter="."
while [ $# -gt 0 ]; do
  case "$1" in
    --commit) commit="$2"; shift 2 ;;
    --before) before="$2"; shift 2 ;;
    --json) json="$2"; shift 2 ;;
    --repetitions) repetitions="$2"; shift 2 ;;
    --workers) workers="$2"; shift 2 ;;
    --sizes) sizes="$2"; shift 2 ;;
    --filter) filter="$2"; shift 2 ;;
    *) echo "bench_ratios.sh: unknown option '$1'" >&2; exit 2 ;;
  esac
done

kivlut_install_dependencies

# The library to measure: the working tree, or a snapshot of the commit asked for.
label="working-tree"
source_dir="$KIVLUT_ROOT"
if [ -n "$commit" ]; then
  label="$(git -C "$KIVLUT_ROOT" rev-parse --short "$commit")"
  source_dir="$KIVLUT_ROOT/build/ratios/source-$label"
  rm -rf "$source_dir"
  mkdir -p "$source_dir"
  git -C "$KIVLUT_ROOT" archive "$commit" | tar -x -C "$source_dir"
fi
work="$KIVLUT_ROOT/build/ratios/$label"
install_dir="$work/install"
cmake -S "$source_dir" -B "$work/library" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_INSTALL_PREFIX="$install_dir" -DKIVLUT_BUILD_TESTS=OFF -DKIVLUT_BUILD_BENCHMARKS=OFF \
  -DKIVLUT_BUILD_TOOLS=OFF -DKIVLUT_BUILD_EXAMPLES=OFF -DKIVLUT_BUILD_DIALOG=OFF > /dev/null
cmake --build "$work/library" -j "$KIVLUT_JOBS" > /dev/null
cmake --install "$work/library" > /dev/null
cmake -S "$KIVLUT_ROOT/bench/ratios" -B "$work/bench" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_PREFIX_PATH="$install_dir" > /dev/null
cmake --build "$work/bench" -j "$KIVLUT_JOBS" > /dev/null

if [ -z "$json" ]; then
  json="$(mktemp --suffix=.json)"
  trap 'rm -f "$json"' EXIT
fi
worker_env=()
if [ -n "$workers" ]; then
  worker_env=(KIV_TBB_CHUNKS="$workers" OMP_NUM_THREADS="$workers" KIVLUT_BENCH_WORKERS="$workers")
fi
echo "bench_ratios.sh: measuring the library of $label, $repetitions rounds, interleaved" >&2
# Standard output carries the library's own timing lines; the results go to the JSON file.
env "${worker_env[@]}" KIVLUT_BENCH_SIZES="$sizes" "$work/bench/kivlut_ratio_bench" \
  --benchmark_filter="$filter" --benchmark_repetitions="$repetitions" \
  --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
  --benchmark_out="$json" --benchmark_out_format=json > /dev/null

# The processor the run used and the vector extensions it offers.
model="$(grep -m1 '^model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ *//')"
offered="$(grep -m1 '^flags' /proc/cpuinfo | tr ' ' '\n' | grep -E '^(sse4_2|avx|avx2|fma|avx512f|avx512bw)$' | tr '\n' ' ')"
echo "cpu: $model; offers: $offered"
before_args=()
if [ -n "$before" ]; then before_args=(--before "$before"); fi
/usr/bin/python3 "$KIVLUT_ROOT/scripts/bench_ratios.py" "$json" "${before_args[@]}"
