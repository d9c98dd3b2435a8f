# What a user gets: the shared library, every public header, and the two ways to find them.

include(CMakePackageConfigHelpers)

install(TARGETS dravik_adt EXPORT dravik_adt_targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY dravik/adt DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dravik FILES_MATCHING PATTERN "*.h"
        PATTERN "platform" EXCLUDE PATTERN "testing" EXCLUDE)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/dravik_adt)
install(EXPORT dravik_adt_targets NAMESPACE dravik:: DESTINATION ${package_dir})
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/dravik_adt-config.cmake.in ${PROJECT_BINARY_DIR}/dravik_adt-config.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/dravik_adt-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/dravik_adt-config.cmake ${PROJECT_BINARY_DIR}/dravik_adt-config-version.cmake
        DESTINATION ${package_dir})

configure_file(${CMAKE_CURRENT_LIST_DIR}/dravik_adt.pc.in ${PROJECT_BINARY_DIR}/dravik_adt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/dravik_adt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
