# The reference manual: Doxygen renders murvio.h into the build tree as part
# of the default build (Doxygen is required unless MURVIO_BUILD_DOCS is OFF),
# and prints a warning for any call, argument, code or type left undocumented; the test reference_manual runs it again with
# warnings as errors.
if(NOT MURVIO_BUILD_DOCS)
  return()
endif()
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
  murvio_missing("Doxygen, for the reference manual," "doxygen" MURVIO_BUILD_DOCS)
endif()
include(GNUInstallDirs)
set(MURVIO_DOCS_DIR ${CMAKE_BINARY_DIR}/docs)
set(MURVIO_DOCS_WARN_AS_ERROR NO)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile @ONLY)
set(MURVIO_DOCS_WARN_AS_ERROR FAIL_ON_WARNINGS)
set(MURVIO_DOCS_DIR ${CMAKE_BINARY_DIR}/docs-check)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${CMAKE_BINARY_DIR}/Doxyfile.check @ONLY)
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/docs/html/index.html
  COMMAND ${DOXYGEN_EXECUTABLE} ${CMAKE_BINARY_DIR}/Doxyfile
  DEPENDS ${PROJECT_SOURCE_DIR}/include/murvio.h ${CMAKE_BINARY_DIR}/Doxyfile
  COMMENT "Reference manual (Doxygen)")
add_custom_target(murvio_docs ALL DEPENDS ${CMAKE_BINARY_DIR}/docs/html/index.html)
install(DIRECTORY ${CMAKE_BINARY_DIR}/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} OPTIONAL)
if(MURVIO_BUILD_TESTS)
  add_test(NAME reference_manual COMMAND ${DOXYGEN_EXECUTABLE} ${CMAKE_BINARY_DIR}/Doxyfile.check)
endif()
