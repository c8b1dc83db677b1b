# Steps shared by scripts/demo, scripts/test and scripts/bench: install what is missing,
# configure and build a tree. Sourced by those scripts, not run on its own.
set -euo pipefail

KORVEX_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Debian 12 packages the build, the tests and the benchmarks need.
KORVEX_PACKAGES=(
  cmake ninja-build g++ clang libclang-rt-14-dev
  libgtest-dev libbenchmark-dev nlohmann-json3-dev
  libsuitesparse-dev libopenblas-dev zlib1g-dev
  pkg-config help2man man-db groff-base
  pybind11-dev python3-dev python3-numpy python3-scipy python3-pytest python3-distributed
  libfuzzer-14-dev valgrind
)

step() { printf '\n==> %s\n' "$*"; }
fail() { printf '\nkorvex: %s\n' "$*" >&2; exit 1; }

as_root() {
  if [ "$(id -u)" -eq 0 ]; then
    "$@"
  elif command -v sudo >/dev/null 2>&1; then
    sudo "$@"
  else
    fail "need root (or sudo) to run: $*"
  fi
}

install_dependencies() {
  command -v dpkg-query >/dev/null 2>&1 && command -v apt-get >/dev/null 2>&1 ||
    fail "apt-get not found: this script expects Debian 12; install by hand: ${KORVEX_PACKAGES[*]}"
  local missing=() package
  for package in "${KORVEX_PACKAGES[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    step "dependencies: all present"
    return
  fi
  step "installing: ${missing[*]}"
  as_root apt-get update -qq || fail "apt-get update failed"
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" ||
    fail "apt-get install failed for: ${missing[*]}"
}

# configure_and_build DIR [cmake options...]: a Ninja tree in $KORVEX_ROOT/DIR.
configure_and_build() {
  local dir=$1
  shift
  step "configuring $dir"
  cmake -S "$KORVEX_ROOT" -B "$KORVEX_ROOT/$dir" -G Ninja "$@" || fail "configuring $dir failed"
  step "building $dir"
  cmake --build "$KORVEX_ROOT/$dir" || fail "building $dir failed"
}

# The Release tree that the demo, the tests and the benchmarks share.
build_release() {
  configure_and_build build/release -DCMAKE_BUILD_TYPE=Release -DKORVEX_WERROR=ON -DKORVEX_BUILD_BENCHMARKS=ON
}

# The sanitizer tree, built with clang so that every run also checks clang's warnings.
build_sanitize() {
  CC=clang CXX=clang++ configure_and_build build/sanitize -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEX_WERROR=ON \
    -DKORVEX_SANITIZE=ON
}

# The ThreadSanitizer tree (scripts/tsan).
build_tsan() {
  CC=clang CXX=clang++ configure_and_build build/tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEX_WERROR=ON \
    -DKORVEX_TSAN=ON
}

# The fuzz tree: the targets of tests/fuzz instrumented for libFuzzer (scripts/fuzz).
build_fuzz() {
  CC=clang CXX=clang++ configure_and_build build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKORVEX_WERROR=ON \
    -DKORVEX_FUZZ=ON -DKORVEX_BUILD_TESTS=OFF
}
