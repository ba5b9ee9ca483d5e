#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds clients against what was
# installed: through find_package (shared and static) and through pkg-config
# (shared and static). The environment names the build (see CMakeLists.txt):
# BUILD CONFIG WORK CLIENT CMAKE CC LIBDIR INCLUDEDIR VERSION MURV PYTHON PYDIR.
#
# Nothing here may find the build tree's library instead of the installed one:
# LD_LIBRARY_PATH is cleared, the shared clients find the library through
# their RPATH (CMake's build RPATH for the find_package client, -rpath from
# the pkg-config libdir for the other), and ldd must show the installed file.
set -euo pipefail
unset LD_LIBRARY_PATH
fail() { echo "FAIL: $*" >&2; exit 1; }

rm -rf "$WORK" && mkdir -p "$WORK"
PREFIX=$WORK/prefix LIB=$WORK/prefix/$LIBDIR
MAJOR=${VERSION%%.*} MINOR=$(echo "$VERSION" | cut -d. -f2)
SONAME=libmurvio.so.$MAJOR
"$CMAKE" --install "$BUILD" ${CONFIG:+--config "$CONFIG"} --prefix "$PREFIX" >"$WORK/install.log"

# The files, and the chain libmurvio.so -> libmurvio.so.MAJOR ->
# libmurvio.so.VERSION whose soname is the major version.
for f in "$PREFIX/$INCLUDEDIR/murvio.h" "$LIB/libmurvio.a" "$LIB/pkgconfig/murvio.pc" \
         "$LIB/cmake/murvio/murvioConfig.cmake" "$LIB/cmake/murvio/murvioConfigVersion.cmake"; do
  [ -f "$f" ] || fail "not installed: $f"
done
[ "$(readlink "$LIB/libmurvio.so")" = "$SONAME" ] || fail "libmurvio.so does not link to $SONAME"
[ "$(readlink "$LIB/$SONAME")" = "libmurvio.so.$VERSION" ] || fail "$SONAME does not link to libmurvio.so.$VERSION"
readelf -d "$LIB/libmurvio.so.$VERSION" | grep -qF "Library soname: [$SONAME]" \
  || fail "the soname is not $SONAME"
# murv and the Python module give the same version as the library.
if [ "$MURV" = 1 ]; then
  got=$("$PREFIX/bin/murv" --version) || fail "the installed murv does not run"
  [ "$got" = "murv $VERSION" ] || fail "murv --version: $got"
fi
if [ -n "$PYDIR" ]; then
  got=$(PYTHONPATH=$PREFIX/$PYDIR PYTHONDONTWRITEBYTECODE=1 "$PYTHON" -c 'import murvio; print(murvio.__version__)') \
    || fail "the installed Python module does not load"
  [ "$got" = "$VERSION" ] || fail "murvio.__version__: $got"
fi

# find_package takes requests of the same major version, up to this one.
mkdir -p "$WORK/version"
printf 'cmake_minimum_required(VERSION 3.25)\nproject(v NONE)\nfind_package(murvio ${WANT} CONFIG REQUIRED)\n' \
  >"$WORK/version/CMakeLists.txt"
for want in "$VERSION:ok" "$MAJOR.0:ok" "$MAJOR.$((MINOR + 1)):no" "$((MAJOR + 1)):no"; do
  if "$CMAKE" -S "$WORK/version" -B "$WORK/version/${want%:*}" -Dmurvio_DIR="$LIB/cmake/murvio" \
       -DWANT="${want%:*}" >/dev/null 2>&1; then got=ok; else got=no; fi
  [ "$got" = "${want#*:}" ] || fail "find_package(murvio ${want%:*}) against $VERSION: $got"
done

# Runs a shared client and checks that it loaded the installed library.
run_shared() {
  local loaded
  loaded=$(ldd "$1" | awk -v so="$SONAME" '$1 == so { print $3 }')
  [ "$(realpath -e "$loaded")" = "$(realpath "$LIB/libmurvio.so.$VERSION")" ] \
    || { ldd "$1"; fail "$1 does not load the installed library"; }
  (cd "$WORK" && "$1" "$2") || fail "$1"
}
# Runs a static client and checks that it needs no libmurvio.so.
run_static() {
  if readelf -d "$1" | grep -q 'NEEDED.*libmurvio'; then fail "$1 needs the shared library"; fi
  (cd "$WORK" && "$1" "$2") || fail "$1"
}

# find_package.
"$CMAKE" -S "$CLIENT" -B "$WORK/client" -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_BUILD_TYPE=Release \
  >"$WORK/client.log" || { cat "$WORK/client.log"; fail "configuring the find_package client"; }
"$CMAKE" --build "$WORK/client" >>"$WORK/client.log" || { cat "$WORK/client.log"; fail "building the find_package clients"; }
run_shared "$WORK/client/client_shared" cmake_shared.murv
run_static "$WORK/client/client_static" cmake_static.murv

# pkg-config. The static client is linked wholly static, so the line
# `pkg-config --static` gives must name everything the archive needs.
export PKG_CONFIG_PATH=$LIB/pkgconfig
[ "$(pkg-config --modversion murvio)" = "$VERSION" ] || fail "pkg-config version"
"$CC" -o "$WORK/pc_shared" "$CLIENT/client.c" $(pkg-config --cflags --libs murvio) \
  -Wl,-rpath,"$(pkg-config --variable=libdir murvio)" || fail "linking with pkg-config --libs"
run_shared "$WORK/pc_shared" pc_shared.murv
"$CC" -static -o "$WORK/pc_static" "$CLIENT/client.c" $(pkg-config --static --cflags --libs murvio) \
  || fail "linking with pkg-config --static --libs"
run_static "$WORK/pc_static" pc_static.murv
echo "install ok"
