#!/bin/sh
# Runs the interface tests and the unit tests of a build under valgrind's
# memcheck: any memory error, or any block definitely or indirectly lost,
# fails the run.
#   tests/valgrind.sh [build directory, default build/release]
set -eu
build=${1:-build/release}
export LOCPATH="$build/locale"
status=0
for t in murvio_api_tests murvio_unit; do
  echo "== $t under memcheck"
  valgrind --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    --show-leak-kinds=definite,indirect -q "$build/tests/$t" --gtest_brief=1 || status=1
done
exit $status
