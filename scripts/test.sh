#!/usr/bin/env bash
# The whole test suite: installs what is missing, then for each configuration builds with warnings
# as errors and runs the tests with ctest. The default list is "gcc clang asan tsan"; set
# KIVLUT_TEST_COMPILERS to a subset (e.g. "gcc") to run only those.
#   gcc, clang  GCC 12 / Clang 14, everything built, every test.
#   asan        Clang 14 with AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer on
#               every target but the Python module, the fuzz targets included; every C++ test once,
#               the fuzzers' short runs among them.
#   tsan        Clang 14 with ThreadSanitizer; only the concurrency tests.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

configs="${KIVLUT_TEST_COMPILERS:-gcc clang asan tsan}"
for config in $configs; do
  case "$config" in
    gcc | clang | asan | tsan) ;;
    *) echo "unknown configuration '$config' (use gcc, clang, asan or tsan)" >&2; exit 2 ;;
  esac
done

kivlut_install_dependencies
kivlut_install_packages "${KIVLUT_BROWSER_PACKAGES[@]}" "${KIVLUT_PYTHON_TEST_PACKAGES[@]}"

# Every test configuration builds the tests and the seams that let them make named stages fail.
test_options="-DKIVLUT_BUILD_TESTS=ON -DKIVLUT_FAULT_INJECTION=ON"

for config in $configs; do
  build_dir="$KIVLUT_ROOT/build/test-$config"
  echo "== $config: building in $build_dir"
  case "$config" in
    gcc | clang)
      if [ "$config" = gcc ]; then cxx=g++; else cxx=clang++-14; fi
      # The installed-exports check builds the library once more; the gcc run alone makes it.
      exports=ON
      if [ "$config" = clang ]; then exports=OFF; fi
      kivlut_build "$build_dir" -DCMAKE_CXX_COMPILER="$cxx" -DKIVLUT_WERROR=ON $test_options \
        -DKIVLUT_TEST_EXPORTS=$exports
      echo "== $config: running the tests"
      (cd "$build_dir" && ctest --output-on-failure -j "$KIVLUT_JOBS")
      ;;
    asan)
      # Exported before building: the test lists are read by running the sanitized programs.
      # The chunked tests run with 3 chunks only (the gcc and clang runs cover 1 and 7): every
      # test still runs once under the sanitizers, in about a third of the time.
      # The Python module is left out: loaded into an uninstrumented /usr/bin/python3 it would
      # need the sanitizer runtime preloaded into the interpreter; the kernels it calls run here
      # under the GoogleTest suites and the fuzzers.
      (
        kivlut_sanitizer_environment
        kivlut_build "$build_dir" -DCMAKE_CXX_COMPILER=clang++-14 -DKIVLUT_WERROR=ON $test_options \
          -DKIVLUT_TEST_EXPORTS=OFF -DKIVLUT_SANITIZE=address,undefined -DKIVLUT_BUILD_FUZZERS=ON \
          -DKIVLUT_BUILD_BENCHMARKS=OFF -DKIVLUT_TEST_CHUNK_COUNTS=3 \
          -DKIVLUT_BUILD_PYTHON=OFF
        echo "== $config: running the tests"
        cd "$build_dir" && ctest --output-on-failure -j "$KIVLUT_JOBS"
      )
      ;;
    tsan)
      (
        kivlut_sanitizer_environment
        kivlut_configure "$build_dir" -DCMAKE_CXX_COMPILER=clang++-14 -DKIVLUT_WERROR=ON $test_options \
          -DKIVLUT_TEST_EXPORTS=OFF -DKIVLUT_SANITIZE=thread -DKIVLUT_BUILD_DIALOG=OFF -DKIVLUT_BUILD_TOOLS=OFF \
          -DKIVLUT_BUILD_EXAMPLES=OFF -DKIVLUT_BUILD_BENCHMARKS=OFF -DKIVLUT_BUILD_PYTHON=OFF
        cmake --build "$build_dir" -j "$KIVLUT_JOBS" --target concurrency_test
        echo "== $config: running the concurrency tests"
        cd "$build_dir" && ctest --output-on-failure -j "$KIVLUT_JOBS" -R Concurrency \
          --no-tests=error
      )
      ;;
  esac
done
