# SPDX-License-Identifier: Apache-2.0
# Companions: libraries beside the library, each with its own dependency, CMake component and Debian packages.

option(DRAVIK_ADT_BUILD_COMPANIONS "Build the libraries beside the library whose dependencies are found" OFF)

# dravik_adt_companion(NAME HEADERS FOLDER SOURCES FILE... [NEEDS DEPENDENCY...] [LIBRARIES TARGET...]
#                      [COMPANIONS NAME...] SUMMARY TEXT DESCRIPTION TEXT)
#
# Makes the library libdravik_NAME, known as dravik::NAME here and to users of the component NAME. FOLDER, below the top
# of the source, is the folder whose headers are installed, those in its detail/ folder excepted. NEEDS names variables
# such as netCDF_FOUND: where one of them is false, the companion is left out with one line. LIBRARIES are private to
# it; COMPANIONS are others that it is built on. SUMMARY and DESCRIPTION are those of its packages, in lines below 80
# characters. The option DRAVIK_ADT_BUILD_<NAME> leaves out one companion alone.
function(dravik_adt_companion name)
    cmake_parse_arguments(IT "" "FOLDER;SUMMARY;DESCRIPTION" "SOURCES;NEEDS;LIBRARIES;COMPANIONS" ${ARGN})
    string(TOUPPER ${name} upper)
    option(DRAVIK_ADT_BUILD_${upper} "Build dravik::${name}: ${IT_SUMMARY}" ${DRAVIK_ADT_BUILD_COMPANIONS})
    if(NOT DRAVIK_ADT_BUILD_${upper})
        return()
    endif()
    if(NOT BUILD_SHARED_LIBS)
        message(STATUS "dravik::${name} is left out: it needs the shared library")
        return()
    endif()
    foreach(needed IN LISTS IT_NEEDS)
        if(NOT ${needed})
            string(REPLACE "_FOUND" "" needed ${needed})
            message(STATUS "dravik::${name} is left out: ${needed} is missing")
            return()
        endif()
    endforeach()
    foreach(companion IN LISTS IT_COMPANIONS)
        if(NOT TARGET dravik_${companion})
            message(STATUS "dravik::${name} is left out: dravik::${companion} is missing")
            return()
        endif()
    endforeach()
    add_library(dravik_${name} SHARED ${IT_SOURCES})
    add_library(dravik::${name} ALIAS dravik_${name})
    dravik_adt_configure_target(dravik_${name})
    set_target_properties(
        dravik_${name}
        PROPERTIES VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                   EXPORT_NAME ${name}
                   DEFINE_SYMBOL ""
                   CXX_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON
                   INSTALL_RPATH "$ORIGIN")
    target_compile_definitions(dravik_${name} PRIVATE DRAVIK_ADT_BUILDING)
    list(TRANSFORM IT_COMPANIONS PREPEND dravik_)
    target_link_libraries(dravik_${name} PUBLIC dravik_adt ${IT_COMPANIONS} PRIVATE ${IT_LIBRARIES})
    target_link_options(dravik_${name} PRIVATE -Wl,--exclude-libs,ALL)

    string(REPLACE "_" "-" package ${name})
    set_property(GLOBAL APPEND PROPERTY DRAVIK_ADT_COMPANIONS ${name})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_FOLDER ${IT_FOLDER})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_PACKAGE libdravik-${package})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_SUMMARY "${IT_SUMMARY}")
    set_property(GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_DESCRIPTION "${IT_DESCRIPTION}")
    list(TRANSFORM IT_COMPANIONS REPLACE "^dravik_" "")
    set_property(GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_COMPANIONS "${IT_COMPANIONS}")
endfunction()

# What a user gets of one companion: its library, its headers, and what find_package reads of it.
function(dravik_adt_install_companion name package_dir)
    get_property(folder GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_FOLDER)
    get_property(companions GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${name}_COMPANIONS)
    install(
        TARGETS dravik_${name}
        EXPORT dravik_adt_${name}_targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name}_runtime
                NAMELINK_COMPONENT ${name}_development)
    get_filename_component(above ${folder} DIRECTORY)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${above}
            COMPONENT ${name}_development FILES_MATCHING PATTERN "*.h" PATTERN "detail" EXCLUDE
            PATTERN "testing" EXCLUDE)
    install(EXPORT dravik_adt_${name}_targets NAMESPACE dravik:: DESTINATION ${package_dir}
            COMPONENT ${name}_development)
    set(component ${PROJECT_BINARY_DIR}/dravik_adt-${name}.cmake)
    set(lines "")
    foreach(companion IN LISTS companions)
        string(APPEND lines "include(\${CMAKE_CURRENT_LIST_DIR}/dravik_adt-${companion}.cmake)\n")
    endforeach()
    file(CONFIGURE OUTPUT ${component}
         CONTENT "${lines}include(\${CMAKE_CURRENT_LIST_DIR}/dravik_adt_${name}_targets.cmake)\n" @ONLY)
    install(FILES ${component} DESTINATION ${package_dir} COMPONENT ${name}_development)
endfunction()
