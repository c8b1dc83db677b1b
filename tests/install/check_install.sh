#!/usr/bin/env bash
# Installs a build tree into a temporary prefix and uses it as a user would: builds
# examples/c/solve.c with pkg-config and through the CMake package (shared and static),
# runs each build, checks what the shared library exports, the installed command and its
# man page.
#
#   check_install.sh BUILD_DIR SOURCE_DIR
set -euo pipefail

build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

fail() { printf 'check_install: %s\n' "$*" >&2; exit 1; }
# run NAME COMMAND...: runs an example build, which prints its verdict and exits 0 only
# when the solve ended at the known optimum.
run() {
  local name=$1
  shift
  local output
  output=$("$@") || fail "$name: $output"
  grep -q 'solved at the known optimum' <<<"$output" || fail "$name printed: $output"
  printf '%s: %s\n' "$name" "$(head -n 1 <<<"$output")"
}

cmake --install "$build" --prefix "$prefix" >"$work/install.log" || fail "cmake --install failed: $(cat "$work/install.log")"
pc=$(find "$prefix" -name korvex.pc)
[ -n "$pc" ] || fail "no korvex.pc under $prefix"
libdir=$(dirname "$(dirname "$pc")")
for file in bin/korvex include/korvex/korvex.h include/korvex/version.h share/man/man1/korvex.1; do
  [ -e "$prefix/$file" ] || fail "missing $file"
done
for file in libkorvex.so libkorvex.a libKorvexLink.so cmake/Korvex/KorvexConfig.cmake cmake/Korvex/KorvexConfigVersion.cmake; do
  [ -e "$libdir/$file" ] || fail "missing $libdir/$file"
done

# The shared library exports the four functions of the header and nothing else.
exports=$(nm -D --defined-only "$libdir/libkorvex.so" | awk '$2 == "T" {print $3}' | sed 's/@.*//' | sort | tr '\n' ' ')
[ "$exports" = "korvexFreeProgress korvexFreeSolution setDefaultSettings solveConeProgram " ] ||
  fail "libkorvex.so exports: $exports"

# The header is plain C11 and C++ on its own, pedantic and without a warning.
cflags=(-Wall -Wextra -pedantic -Werror)
echo '#include <korvex/korvex.h>' | c++ -std=c++11 "${cflags[@]}" -I"$prefix/include" -x c++ -fsyntax-only - ||
  fail "korvex.h does not compile as C++"

# pkg-config, as a Makefile would use it.
export PKG_CONFIG_PATH=$libdir/pkgconfig
[ "$(pkg-config --modversion korvex)" = "$(sed -n 's/.*KORVEX_VERSION_STRING "\(.*\)"/\1/p' "$prefix/include/korvex/version.h")" ] ||
  fail "korvex.pc and version.h disagree on the version"
# shellcheck disable=SC2046
cc -std=c11 "${cflags[@]}" -o "$work/solve_pkg_config" "$source/examples/c/solve.c" \
  $(pkg-config --cflags --libs korvex) -lm -Wl,-rpath,"$libdir" || fail "the pkg-config build failed"
run pkg-config "$work/solve_pkg_config"

# find_package(Korvex CONFIG), with the shared and with the static library.
cmake -S "$source/examples/c" -B "$work/example" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_FLAGS="${cflags[*]}" >"$work/example.log" 2>&1 || fail "configuring examples/c failed: $(cat "$work/example.log")"
cmake --build "$work/example" >>"$work/example.log" 2>&1 || fail "building examples/c failed: $(cat "$work/example.log")"
run find_package "$work/example/solve"
run find_package-static "$work/example/solve_static"
loads=$(ldd "$work/example/solve_static")
! grep -q libkorvex <<<"$loads" || fail "solve_static loads libkorvex.so"

# The installed command solves, and its man page renders with every option of --help.
solved=$("$prefix/bin/korvex" --eps 1e-6 "$source/examples/portfolio.cbf") || fail "installed korvex failed: $solved"
grep -q '^korvex: Solved' <<<"$solved" || fail "installed korvex did not solve: $solved"
page=$(MANWIDTH=100 man -l "$prefix/share/man/man1/korvex.1" 2>&1) || fail "man -l korvex.1 failed: $page"
for section in NAME SYNOPSIS DESCRIPTION EXAMPLES; do
  grep -q "^$section" <<<"$page" || fail "the man page has no $section section"
done
grep -q 'Exit codes' <<<"$page" || fail "the man page does not give the exit codes"
options=$("$prefix/bin/korvex" --help | grep -o -- '--[a-z][a-z_-]*' | sort -u)
for option in $options; do
  grep -q -- "$option" <<<"$page" || fail "the man page lacks $option"
done
# The installed Python module (when the tree built it) solves from scipy and from a file.
if [ -d "$build/python" ]; then
  module=$(find "$prefix" -type d -path '*/dist-packages/korvex' | head -n 1)
  [ -n "$module" ] || fail "the Python module is not installed"
  solved=$(cd "$work" && PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$(dirname "$module") /usr/bin/python3 -c "
import korvex, numpy, scipy.sparse
assert korvex.__file__.startswith('$prefix')
r = korvex.solve(scipy.sparse.csc_matrix([[-1.0, 0.0], [0.0, -1.0]]), numpy.zeros(2), numpy.ones(2),
                 {'linear_vars': 2}, verbose=0)
p = korvex.read('$source/examples/portfolio.cbf')
q = korvex.solve(p, verbose=0)
print(r.status, abs(round(r.pobj, 3)), q.status)
" 2>&1) || fail "the installed Python module failed: $solved"
  [ "$solved" = "Solved 0.0 Solved" ] || fail "the installed Python module answered: $solved"
fi
echo "install check passed: $(wc -w <<<"$options") options in the man page"
