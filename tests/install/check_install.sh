#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds clients against what was
# installed: through find_package (shared and static) and through pkg-config.
# Usage: check_install.sh BUILD_DIR SOURCE_DIR WORK_DIR
set -euo pipefail
BUILD=$1 SRC=$2 WORK=$3
rm -rf "$WORK" && mkdir -p "$WORK"
PREFIX=$WORK/prefix
cmake --install "$BUILD" --prefix "$PREFIX" >"$WORK/install.log"

LIB=$(dirname "$(find "$PREFIX" -name 'libmurvio.so.0' | head -1)")
[ -n "$LIB" ] || { echo "no libmurvio.so.0 installed"; exit 1; }
for f in "$PREFIX/include/murvio.h" "$LIB/libmurvio.so" "$LIB/libmurvio.a" "$LIB/pkgconfig/murvio.pc" \
         "$LIB/cmake/murvio/murvioConfig.cmake" "$LIB/cmake/murvio/murvioConfigVersion.cmake" "$PREFIX/bin/murv"; do
  [ -e "$f" ] || { echo "not installed: $f"; exit 1; }
done
readelf -d "$LIB/libmurvio.so.0.1.0" | grep -q 'SONAME.*\[libmurvio\.so\.0\]' || { echo "soname is not libmurvio.so.0"; exit 1; }
# The installed program finds the installed library by itself.
"$PREFIX/bin/murv" --help >/dev/null

# find_package: the shared client runs through LD_LIBRARY_PATH (an installed
# library in a private prefix is not on the loader's path); the static one
# needs nothing.
cmake -S "$SRC/tests/install/client" -B "$WORK/client" -DCMAKE_PREFIX_PATH="$PREFIX" -DCMAKE_BUILD_TYPE=Release >"$WORK/client.log"
cmake --build "$WORK/client" >>"$WORK/client.log"
(cd "$WORK" && LD_LIBRARY_PATH="$LIB" ./client/client_shared shared.murv && ./client/client_static static.murv)
if readelf -d "$WORK/client/client_static" | grep -q 'NEEDED.*libmurvio'; then echo "the static client needs the shared library"; exit 1; fi

# pkg-config, shared.
export PKG_CONFIG_PATH=$LIB/pkgconfig
cc -o "$WORK/client_pc" "$SRC/tests/install/client/client.c" $(pkg-config --cflags --libs murvio)
(cd "$WORK" && LD_LIBRARY_PATH="$LIB" ./client_pc pc.murv)
[ "$(pkg-config --modversion murvio)" = 0.1.0 ]
echo "install ok"
