# What `cmake --install` puts under the prefix, in the GNU places:
#   lib/libpixmill.so.1.0.0, .so.1, .so         (runtime; the .so link: development)
#   include/pixmill/*.h                         (development)
#   lib/cmake/Pixmill/, lib/pkgconfig/pixmill.pc (development)
#   bin/pixmill                                  (tool)
#   share/doc/pixmill/                           (runtime: README, examples, docs/)
# Each file belongs to one install component, and each component becomes
# one Debian package (PixmillPackage.cmake).
include(CMakePackageConfigHelpers)

set(PIXMILL_CMAKE_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Pixmill)

install(TARGETS pixmill EXPORT PixmillTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime
    NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/pixmill
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev
  FILES_MATCHING PATTERN "*.h")

# The imported target carries the library and its include directory only:
# the library links OpenCV privately and its headers are plain C, so a
# consumer of the C interface never sees OpenCV or RapidJSON.
install(EXPORT PixmillTargets
  NAMESPACE Pixmill::
  FILE PixmillTargets.cmake
  DESTINATION ${PIXMILL_CMAKE_INSTALL_DIR}
  COMPONENT dev)
configure_package_config_file(
  ${CMAKE_CURRENT_LIST_DIR}/PixmillConfig.cmake.in
  ${PROJECT_BINARY_DIR}/PixmillConfig.cmake
  INSTALL_DESTINATION ${PIXMILL_CMAKE_INSTALL_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/PixmillConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/PixmillConfig.cmake
  ${PROJECT_BINARY_DIR}/PixmillConfigVersion.cmake
  DESTINATION ${PIXMILL_CMAKE_INSTALL_DIR}
  COMPONENT dev)

# pixmill.pc finds its prefix from its own place, so the same file serves
# an installed package (/usr) and any prefix given to `cmake --install`.
file(RELATIVE_PATH PIXMILL_PC_TO_PREFIX
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
set(PIXMILL_PC_PREFIX "\${pcfiledir}/${PIXMILL_PC_TO_PREFIX}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/pixmill.pc.in ${PROJECT_BINARY_DIR}/pixmill.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pixmill.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT dev)

install(FILES ${PROJECT_SOURCE_DIR}/README.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples/
  DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
if(EXISTS ${PROJECT_SOURCE_DIR}/docs)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
endif()

# Installing and packaging take what was built and build nothing: `cpack`
# and `make install` would otherwise first rebuild every target, tests and
# benchmarks included. Build first (cmake --build), then install or package.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
