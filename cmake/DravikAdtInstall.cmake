# SPDX-License-Identifier: Apache-2.0
# What a user gets: the library, every public header, and the two ways to find them; as files, or as Debian packages.

include(CMakePackageConfigHelpers)

install(
    TARGETS dravik_adt
    EXPORT dravik_adt_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY dravik/adt DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/dravik COMPONENT development
        FILES_MATCHING PATTERN "*.h"
        PATTERN "platform" EXCLUDE PATTERN "testing" EXCLUDE)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/dravik_adt)
install(EXPORT dravik_adt_targets NAMESPACE dravik:: DESTINATION ${package_dir} COMPONENT development)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/dravik_adt-config.cmake.in ${PROJECT_BINARY_DIR}/dravik_adt-config.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/dravik_adt-config-version.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/dravik_adt-config.cmake ${PROJECT_BINARY_DIR}/dravik_adt-config-version.cmake
        DESTINATION ${package_dir} COMPONENT development)

get_property(companions GLOBAL PROPERTY DRAVIK_ADT_COMPANIONS)
foreach(companion IN LISTS companions)
    dravik_adt_install_companion(${companion} ${package_dir})
endforeach()

# From where the file lies, so that what is installed can be moved, and packed for another prefix.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/dravik_adt.pc.in ${PROJECT_BINARY_DIR}/dravik_adt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/dravik_adt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(PROJECT_IS_TOP_LEVEL)
    include(DravikAdtPackages)
endif()
