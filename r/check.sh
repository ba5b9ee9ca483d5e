#!/bin/sh
# R CMD check --no-manual on the package's source tarball, built from a clean
# copy of the package; fails on an error or a warning (notes are shown).
# Usage: check.sh R PACKAGE-DIR WORK-DIR (the library found as configure finds it)
set -e
R="$1"
src="$2"
dir="$3"
rm -rf "$dir"
mkdir -p "$dir"
cd "$dir"
cp -R "$src" murvio
(cd murvio && ./cleanup)
"$R" CMD build --no-build-vignettes murvio
tarball=$(ls murvio_*.tar.gz)
status=0
"$R" CMD check --no-manual "$tarball" > check.log 2>&1 || status=$?
cat check.log
if [ "$status" -ne 0 ]; then
  cat murvio.Rcheck/00install.out 2>/dev/null || true
  exit 1
fi
grep -q "^Status: " check.log || exit 1
if grep -E "^Status: .*(WARNING|ERROR)" check.log; then
  exit 1
fi
