# Debian packages, one per install component, built with
#   cpack --config build/CPackConfig.cmake -G DEB
#   libpixmill1     the shared library and the documentation: what a
#                   prober host needs at run time
#   libpixmill-dev  headers, the libpixmill.so link, the CMake package and
#                   pixmill.pc; depends on libpixmill1 of the same version
#   pixmill         the command-line tool; depends on libpixmill1
# The runtime package's name carries the SONAME's major number, so a future
# libpixmill2 can be installed beside it. Dependencies on Debian's own
# libraries (OpenCV, libstdc++, libsystemd, ...) are read from the binaries
# by dpkg-shlibdeps; those between the three packages are exact versions.
set(CPACK_PACKAGE_NAME pixmill)
set(CPACK_PACKAGE_VENDOR "Pixmill developers")
set(CPACK_PACKAGE_CONTACT "Pixmill developers <pixmill@localhost>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Machine vision for semiconductor wafer probers")
set(CPACK_PACKAGE_DESCRIPTION
  "Pixmill finds probe-card pin tips, wafer edges, die corners, pads, probe\n\
marks and fiducial marks in camera images, and measures focus and\n\
brightness, through a C interface for the prober's control software.")
set(CPACK_RESOURCE_FILE_README ${PROJECT_SOURCE_DIR}/README.md)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION science)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
# dpkg-shlibdeps finds libpixmill.so.1, needed by the tool, in the build tree;
# the package dependency on it comes from the component dependency below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "shared library")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libpixmill${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_COMPONENT_DEV_DESCRIPTION "development files: headers, CMake package, pkg-config file")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libpixmill-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)

set(CPACK_COMPONENT_TOOL_DESCRIPTION "command-line tool to run filters and recipes")
set(CPACK_COMPONENT_TOOL_DEPENDS runtime)
set(CPACK_DEBIAN_TOOL_PACKAGE_NAME pixmill)

include(CPack)
