# Tests of what the build delivers rather than what the library computes:
# the library's symbol table and version (in pixmill_tests), where its debug
# output goes, the installed tree with two out-of-tree consumers, and the
# Debian packages. The install and package tests carry the labels
# "install" (both) and "package": `ctest -L install`, `ctest -L package`.

# test_library_surface.cpp reads the built library and the public headers.
add_dependencies(pixmill_tests pixmill)
target_compile_definitions(pixmill_tests PRIVATE
  PIXMILL_LIBRARY_FILE="$<TARGET_FILE:pixmill>"
  PIXMILL_PUBLIC_HEADER_DIR="${PROJECT_SOURCE_DIR}/include/pixmill")

# The host process's syslog identity and the journal fields, seen from a
# program that stands in for both channels.
add_executable(pixmill_debug_output_test ${PROJECT_SOURCE_DIR}/tests/debug_output_test.c)
target_link_libraries(pixmill_debug_output_test PRIVATE pixmill)
target_compile_options(pixmill_debug_output_test PRIVATE -Wall -Wextra)
set_target_properties(pixmill_debug_output_test PROPERTIES
  ENABLE_EXPORTS ON RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
add_test(NAME DebugOutput.CarriesItsIdentifierWithoutOpenlog COMMAND pixmill_debug_output_test)
set_tests_properties(DebugOutput.CarriesItsIdentifierWithoutOpenlog PROPERTIES
  ENVIRONMENT "PIXMILL_ROOT=${PROJECT_BINARY_DIR}/tests/debug_output_root")

# Installing and packaging need a normal build: a sanitizer build's library
# cannot be loaded by programs built without the sanitizers, and a fuzz
# build has no shared library.
if(NOT PIXMILL_SANITIZE AND NOT PIXMILL_FUZZ AND TARGET pixmill_cli)
  add_test(NAME Install.PrefixServesFindPackageAndPkgConfigConsumers
    COMMAND bash ${PROJECT_SOURCE_DIR}/tests/install/install_consumers.sh
      ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/tests/install_test
      ${PROJECT_VERSION} ${CMAKE_INSTALL_LIBDIR} ${CMAKE_COMMAND})
  add_test(NAME Package.DebianPackagesHoldTheirFilesAndDependencies
    COMMAND bash ${PROJECT_SOURCE_DIR}/tests/install/package_contents.sh
      ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/tests/package_test
      ${PROJECT_VERSION} ${CMAKE_INSTALL_LIBDIR} ${CMAKE_CPACK_COMMAND})
  set_tests_properties(
    Install.PrefixServesFindPackageAndPkgConfigConsumers
    Package.DebianPackagesHoldTheirFilesAndDependencies
    PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 RESOURCE_LOCK pixmill_build_tree)
  set_tests_properties(Install.PrefixServesFindPackageAndPkgConfigConsumers PROPERTIES LABELS install)
  set_tests_properties(Package.DebianPackagesHoldTheirFilesAndDependencies PROPERTIES LABELS "install;package")
endif()
