#!/bin/sh
# Compares the functions that the shared library exports with the functions
# that the public header declares: exactly the 111 calls, no more, no fewer.
set -eu
lib=$1
header=$2
tmp=${TMPDIR:-/tmp}/murvio_exports.$$
trap 'rm -f "$tmp".*' EXIT
nm -D --defined-only "$lib" | awk '$2 ~ /^[TWiV]$/ || $2 ~ /^[BDGRS]$/ { print $3 }' | sort -u > "$tmp.exported"
grep -o 'MURV_CALL murv[A-Za-z0-9_]*' "$header" | awk '{ print $2 }' | sort -u > "$tmp.declared"
declared=$(wc -l < "$tmp.declared")
exported=$(wc -l < "$tmp.exported")
if [ "$declared" -ne 111 ]; then
  echo "the header declares $declared functions, not 111"; exit 1
fi
extra=$(comm -23 "$tmp.exported" "$tmp.declared")
if [ -n "$extra" ]; then
  echo "exported but not part of the interface:"; echo "$extra"; exit 1
fi
missing=$(comm -13 "$tmp.exported" "$tmp.declared" | wc -l)
echo "exports: $exported of $declared interface functions, nothing else"
if [ "$missing" -ne 0 ]; then
  echo "$missing interface functions are not exported"; exit 1
fi
