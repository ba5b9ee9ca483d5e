# Installation: the header, the shared library with a versioned soname, a
# static library of the same objects, the CMake package (murvio::murvio,
# murvio::murvio_static) and a pkg-config file. murv installs itself.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

if(NOT WIN32)
  set_target_properties(murvio PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
endif()
if(NOT MURVIO_BUILD_FUZZ)
  add_library(murvio_static STATIC $<TARGET_OBJECTS:murvio_obj>)
  target_include_directories(murvio_static PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  # The same file name as the shared library's on Unix (libmurvio.a); the
  # library is C++ inside, so a C program links the C++ runtime with it.
  if(NOT WIN32)
    set_target_properties(murvio_static PROPERTIES OUTPUT_NAME murvio)
  endif()
  set_target_properties(murvio_static PROPERTIES INTERFACE_LINK_LIBRARIES "$<$<NOT:$<BOOL:${WIN32}>>:stdc++;m>")
endif()
target_include_directories(murvio INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

set(MURVIO_INSTALL_TARGETS murvio)
if(TARGET murvio_static)
  list(APPEND MURVIO_INSTALL_TARGETS murvio_static)
endif()
install(TARGETS ${MURVIO_INSTALL_TARGETS} EXPORT murvioTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${PROJECT_SOURCE_DIR}/include/murvio.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(MURVIO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/murvio)
install(EXPORT murvioTargets NAMESPACE murvio:: DESTINATION ${MURVIO_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/murvioConfig.cmake.in
  ${CMAKE_BINARY_DIR}/murvioConfig.cmake INSTALL_DESTINATION ${MURVIO_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/murvioConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/murvioConfig.cmake ${CMAKE_BINARY_DIR}/murvioConfigVersion.cmake
  DESTINATION ${MURVIO_CMAKE_DIR})

# pkg-config: the prefix is taken from the file's own place, so the installed
# tree may be moved.
file(RELATIVE_PATH MURVIO_PC_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${PROJECT_SOURCE_DIR}/cmake/murvio.pc.in ${CMAKE_BINARY_DIR}/murvio.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/murvio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
