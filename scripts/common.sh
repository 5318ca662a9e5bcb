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
)

kivlut_install_dependencies() {
  local missing=()
  local package
  for package in "${KIVLUT_PACKAGES[@]}"; do
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

# kivlut_build BUILD_DIR [CMAKE_ARGS...]
kivlut_build() {
  local build_dir="$1"
  shift
  cmake -S "$KIVLUT_ROOT" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release "$@"
  cmake --build "$build_dir" -j "$KIVLUT_JOBS"
}
