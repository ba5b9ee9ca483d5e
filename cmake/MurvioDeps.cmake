# What each part of the build needs. A part that is switched on and lacks
# something stops the configure with the Debian package to install and the
# option that leaves the part out, rather than quietly building less than
# was asked for. tools/deps.sh main|test installs all of it.

# murvio_missing(WHAT PACKAGES OPTION): stop, naming what is missing.
function(murvio_missing what packages option)
  message(FATAL_ERROR
    "${what} not found. Install the Debian package(s) ${packages} "
    "(tools/deps.sh main installs what the library and murv need, tools/deps.sh test what the tests need), "
    "or configure with -D${option}=OFF.")
endfunction()

# The valgrind pass of the tests: ON needs valgrind, AUTO runs it when
# valgrind is installed, OFF leaves it out. Builds with sanitizers never run it.
set(MURVIO_TEST_VALGRIND AUTO CACHE STRING "Run the tests under valgrind's memcheck too (ON, OFF or AUTO)")
set_property(CACHE MURVIO_TEST_VALGRIND PROPERTY STRINGS ON OFF AUTO)

if(MURVIO_BUILD_TESTS AND NOT WIN32)
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    murvio_missing("GoogleTest, for the tests," "libgtest-dev" MURVIO_BUILD_TESTS)
  endif()
  find_program(MURVIO_LOCALEDEF localedef)
  if(NOT MURVIO_LOCALEDEF OR NOT EXISTS /usr/share/i18n/charmaps/GBK.gz OR NOT EXISTS /usr/share/i18n/locales/zh_CN)
    murvio_missing("localedef with the locale sources, for the test locales," "locales" MURVIO_BUILD_TESTS)
  endif()
  if(NOT CMAKE_CXX_FLAGS MATCHES "sanitize")
    # The installed package is tested by building clients with pkg-config.
    find_program(MURVIO_PKG_CONFIG pkg-config)
    if(NOT MURVIO_PKG_CONFIG)
      murvio_missing("pkg-config, for the test of the installed package," "pkg-config" MURVIO_BUILD_TESTS)
    endif()
    if(MURVIO_TEST_VALGRIND STREQUAL "ON")
      find_program(MURVIO_VALGRIND valgrind)
      if(NOT MURVIO_VALGRIND)
        murvio_missing("valgrind, for the memcheck pass of the tests," "valgrind" MURVIO_TEST_VALGRIND)
      endif()
    endif()
  endif()
endif()

if(MURVIO_BUILD_TESTS AND WIN32 AND NOT EXISTS /usr/src/googletest/CMakeLists.txt)
  # The Windows builds compile GoogleTest from its sources.
  murvio_missing("GoogleTest's sources, for the tests of the DLLs," "googletest" MURVIO_BUILD_TESTS)
endif()

if(MURVIO_BUILD_BENCH AND NOT WIN32)
  find_package(benchmark QUIET)
  if(NOT benchmark_FOUND)
    murvio_missing("Google Benchmark, for the benchmarks," "libbenchmark-dev" MURVIO_BUILD_BENCH)
  endif()
endif()

if(MURVIO_BUILD_FUZZ)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_LINK_OPTIONS -fsanitize=fuzzer)
  check_cxx_source_compiles(
    "#include <cstddef>\n#include <cstdint>\nextern \"C\" int LLVMFuzzerTestOneInput(const uint8_t*, size_t) { return 0; }"
    MURVIO_HAVE_LIBFUZZER)
  unset(CMAKE_REQUIRED_LINK_OPTIONS)
  if(NOT MURVIO_HAVE_LIBFUZZER)
    murvio_missing("Clang's libFuzzer runtime" "clang libclang-rt-14-dev" MURVIO_BUILD_FUZZ)
  endif()
endif()
