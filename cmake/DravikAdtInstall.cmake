# SPDX-License-Identifier: Apache-2.0
# What a user gets: the library, every public header, and the two ways to find them; as files, or as Debian packages.

include(CMakePackageConfigHelpers)

install(
    TARGETS dravik_adt
    EXPORT dravik_adt_targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
# The public headers, and those of a detail/ folder that a public one reaches.
file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR} dravik/adt/*.h)
list(FILTER headers EXCLUDE REGEX "/(platform|testing|detail)/")
set(waiting ${headers})
while(waiting)
    list(POP_FRONT waiting header)
    file(STRINGS ${header} included REGEX "^#include \"dravik/adt/.*/detail/")
    list(TRANSFORM included REPLACE "^#include \"([^\"]*)\".*" "\\1")
    list(REMOVE_ITEM included ${headers} "")
    list(APPEND headers ${included})
    list(APPEND waiting ${included})
endwhile()
foreach(header IN LISTS headers)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} COMPONENT development)
endforeach()

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
