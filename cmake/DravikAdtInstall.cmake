# SPDX-License-Identifier: Apache-2.0
# What a user gets: the shared library, every public header, and the two ways to find them; as files or as two Debian
# packages, one to run programs and one to build them.

include(CMakePackageConfigHelpers)

install(
    TARGETS dravik_adt
    EXPORT dravik_adt_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
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

# From where the file lies, so that what is installed can be moved, and packed for another prefix.
file(RELATIVE_PATH prefix_from_pc /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/dravik_adt.pc.in ${PROJECT_BINARY_DIR}/dravik_adt.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/dravik_adt.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_CONTACT "dravik-adt maintainers <maintainers@example.org>")
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    # Where gdb looks for what belongs to a library, once the packages are installed.
    install(FILES tools/gdb/dravik_adt_printers.py COMPONENT development
            DESTINATION share/gdb/auto-load${CPACK_PACKAGING_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}
            RENAME libdravik_adt.so.${PROJECT_VERSION}-gdb.py)
    set(CPACK_COMPONENTS_ALL runtime development)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(runtime_package libdravik-adt${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/triggers")
    set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Data types for bulk numeric data: shared library")
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libdravik-adt-dev)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
        "${runtime_package} (= ${PROJECT_VERSION}), libboost-dev (>= 1.74)")
    set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Data types for bulk numeric data: headers and build files")
    # The loader learns of a new library without being told by hand.
    file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
    include(CPack)
endif()
