#!/bin/sh
# Installs with apt-get what a Debian 12 machine needs to build murvio:
#
#   tools/deps.sh main    the library and murv (a compiler, make, CMake, CLI11, fast_float)
#   tools/deps.sh test    also everything the test workflows need (GoogleTest, Google
#                         Benchmark, valgrind, Clang's libFuzzer, the locale sources,
#                         MinGW-w64 and Wine, Doxygen, Python's and R's packages)
#
# Only what is missing is installed, and the list is printed first; a second
# run installs nothing. As root it calls apt-get itself, otherwise through sudo.
# Recommended packages are left out, so the lists name everything needed.
set -eu

main="ca-certificates make gcc g++ libc6-dev cmake pkg-config libcli11-dev libfast-float-dev"
test="$main binutils libtsan2 locales libgtest-dev googletest libbenchmark-dev valgrind
  clang libclang-rt-14-dev g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix wine64 doxygen
  python3 python3-dev python3-pybind11 python3-numpy python3-pandas python3-dask
  python3-distributed python3-pytest
  r-base-dev r-cran-cpp11 r-cran-testthat r-cran-tibble r-cran-data.table"

case "${1-}" in
  main) want=$main ;;
  test) want=$test ;;
  *) echo "usage: $0 main|test" >&2; exit 2 ;;
esac

# A package counts as present when dpkg has it fully installed.
missing=""
for p in $want; do
  if [ "$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null)" != installed ]; then
    missing="$missing $p"
  fi
done
if [ -z "$missing" ]; then
  echo "deps.sh: everything for '$1' is installed"
  exit 0
fi

if [ "$(id -u)" = 0 ]; then
  as_root=""
elif command -v sudo >/dev/null 2>&1; then
  as_root="sudo"
else
  echo "deps.sh: needs root, or sudo, to install:$missing" >&2
  exit 1
fi
echo "deps.sh: installing:$missing"
$as_root env DEBIAN_FRONTEND=noninteractive apt-get update
# shellcheck disable=SC2086 # one word per package
$as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
