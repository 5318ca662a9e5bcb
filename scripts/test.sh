#!/usr/bin/env bash
# The whole test suite: installs what is missing, then for each compiler (GCC 12 and Clang 14 by
# default; set KIVLUT_TEST_COMPILERS="gcc" or "clang" for one) builds with warnings as errors and
# runs every test with ctest.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

kivlut_install_dependencies

for compiler in ${KIVLUT_TEST_COMPILERS:-gcc clang}; do
  case "$compiler" in
    gcc) cxx=g++ ;;
    clang) cxx=clang++-14 ;;
    *) echo "unknown compiler '$compiler' (use gcc or clang)" >&2; exit 2 ;;
  esac
  build_dir="$KIVLUT_ROOT/build/test-$compiler"
  echo "== $compiler: building in $build_dir"
  kivlut_build "$build_dir" -DCMAKE_CXX_COMPILER="$cxx" -DKIVLUT_WERROR=ON
  echo "== $compiler: running the tests"
  (cd "$build_dir" && ctest --output-on-failure -j "$KIVLUT_JOBS")
done
