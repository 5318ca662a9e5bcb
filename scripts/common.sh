# Shared by the scripts in this folder: installs the Debian packages the project needs, then
# configures and builds. Source it; do not run it.
set -euo pipefail

KIVLUT_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
KIVLUT_JOBS="${KIVLUT_JOBS:-$(nproc)}"

KIVLUT_PACKAGES=(
  build-essential cmake clang-14 libomp-14-dev clang-format
  libopencv-dev libtbb-dev qtbase5-dev
  libgtest-dev libbenchmark-dev xvfb
  xauth fonts-dejavu-core fonts-wqy-microhei
  # The sanitizer and libFuzzer runtimes of Clang 14, and llvm-symbolizer-14 for readable reports:
  # neither comes with clang-14 under --no-install-recommends.
  libclang-rt-14-dev llvm-14
  # The Python module kivlut, built for Debian's /usr/bin/python3.
  pybind11-dev python3-dev python3-numpy
)

# Only the test command needs these: the gallery test opens the demo's index.html in headless
# Chromium through chromedriver and Selenium.
KIVLUT_BROWSER_PACKAGES=(chromium chromium-driver python3-selenium)
# And the Python module's tests run under pytest.
KIVLUT_PYTHON_TEST_PACKAGES=(python3-pytest)

# kivlut_install_packages PACKAGE...: installs those of the Debian packages that are missing.
kivlut_install_packages() {
  local missing=()
  local package
  for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$package")
    fi
  done
  if [ ${#missing[@]} -eq 0 ]; then
    return 0
  fi
  echo "Installing Debian packages: ${missing[*]}"
  local sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  $sudo apt-get update -q
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
}

kivlut_install_dependencies() {
  kivlut_install_packages "${KIVLUT_PACKAGES[@]}"
}

# kivlut_configure BUILD_DIR [CMAKE_ARGS...]
kivlut_configure() {
  local build_dir="$1"
  shift
  cmake -S "$KIVLUT_ROOT" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release "$@"
}

# kivlut_build BUILD_DIR [CMAKE_ARGS...]
kivlut_build() {
  kivlut_configure "$@"
  cmake --build "$1" -j "$KIVLUT_JOBS"
}

# kivlut_sanitizer_environment: exports the run-time options of the Clang sanitizers for every
# program started afterwards (the tests, the children they start, and the test listing that runs
# while building). An ASan, UBSan or LSan report ends the program with SIGABRT, which no test can
# mistake for one of the tool's exit statuses; a TSan report ends it with status 66. Beyond the
# defaults, ASan also checks returns to a finished function's stack and the order in which static
# objects are initialised; leaks are looked for at exit, and only the leaks listed, with their
# reasons, in tests/sanitizers/lsan.supp are forgiven.
kivlut_sanitizer_environment() {
  local symbolizer=""
  if command -v llvm-symbolizer-14 >/dev/null 2>&1; then
    symbolizer=":external_symbolizer_path=$(command -v llvm-symbolizer-14)"
    export ASAN_SYMBOLIZER_PATH
    ASAN_SYMBOLIZER_PATH="$(command -v llvm-symbolizer-14)"
  fi
  local asan_checks="detect_leaks=1:detect_stack_use_after_return=1"
  asan_checks+=":check_initialization_order=1:strict_init_order=1"
  export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:${asan_checks}${symbolizer}"
  export UBSAN_OPTIONS="halt_on_error=1:abort_on_error=1:print_stacktrace=1${symbolizer}"
  export LSAN_OPTIONS="suppressions=$KIVLUT_ROOT/tests/sanitizers/lsan.supp:print_suppressions=0"
  local tsan_options="halt_on_error=1${symbolizer//:/ }"
  # Kept by the concurrency tests' owner; every entry there says why it is not our race.
  if [ -s "$KIVLUT_ROOT/tests/sanitizers/tsan.supp" ]; then
    tsan_options+=" suppressions=$KIVLUT_ROOT/tests/sanitizers/tsan.supp"
  fi
  export TSAN_OPTIONS="$tsan_options"
}
