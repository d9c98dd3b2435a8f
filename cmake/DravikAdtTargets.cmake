# SPDX-License-Identifier: Apache-2.0
# The library target and the two words that every folder's CMakeLists.txt uses: its sources and its tests.

include(GNUInstallDirs)

find_program(DRAVIK_ADT_CCACHE ccache)
mark_as_advanced(DRAVIK_ADT_CCACHE)
if(PROJECT_IS_TOP_LEVEL AND DRAVIK_ADT_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${DRAVIK_ADT_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${DRAVIK_ADT_CCACHE})
endif()
if(PROJECT_IS_TOP_LEVEL)
    set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
endif()

# Language, warnings and float rules of a target of ours. Nothing here reaches a user's own targets.
function(dravik_adt_configure_target target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
    target_compile_options(
        ${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -ffp-contract=off $<$<COMPILE_LANGUAGE:CXX>:-Wconversion>
                          $<$<BOOL:${DRAVIK_ADT_STRICT}>:-Werror>)
endfunction()

function(dravik_adt_add_library)
    # What the operating system gives: private to the library, and to the tests that look at it directly.
    add_library(dravik_adt_platform STATIC)
    dravik_adt_configure_target(dravik_adt_platform)
    set_target_properties(dravik_adt_platform PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden)
    target_include_directories(dravik_adt_platform PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(dravik_adt_platform PUBLIC Boost::headers Threads::Threads ${CMAKE_DL_LIBS})

    add_library(dravik_adt)
    add_library(dravik::adt ALIAS dravik_adt)
    dravik_adt_configure_target(dravik_adt)
    # Until 1.0 a minor version may break its callers.
    set_target_properties(
        dravik_adt
        PROPERTIES VERSION ${PROJECT_VERSION}
                   SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
                   EXPORT_NAME adt
                   DEFINE_SYMBOL ""
                   POSITION_INDEPENDENT_CODE ON
                   CXX_VISIBILITY_PRESET hidden
                   C_VISIBILITY_PRESET hidden
                   VISIBILITY_INLINES_HIDDEN ON)
    target_compile_definitions(dravik_adt PRIVATE DRAVIK_ADT_BUILDING)
    target_include_directories(
        dravik_adt PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    # The objects themselves, so that a static library is whole.
    target_sources(dravik_adt PRIVATE $<TARGET_OBJECTS:dravik_adt_platform>)
    target_link_libraries(dravik_adt PUBLIC Boost::headers PRIVATE Threads::Threads ${CMAKE_DL_LIBS})
    if(BUILD_SHARED_LIBS)
        # A processor fault may arrive at any time while a guard is active, so the library's code is never unmapped.
        set(exported_symbols ${PROJECT_SOURCE_DIR}/cmake/exported_symbols.map)
        target_link_options(dravik_adt PRIVATE -Wl,-z,nodelete -Wl,--exclude-libs,ALL
                                               -Wl,--version-script=${exported_symbols})
        set_property(TARGET dravik_adt PROPERTY LINK_DEPENDS ${exported_symbols})
    endif()
endfunction()

# dravik_adt_sources(FILE...): sources of the library, relative to the calling folder.
function(dravik_adt_sources)
    target_sources(dravik_adt PRIVATE ${ARGN})
endfunction()

# dravik_adt_test(NAME SOURCES FILE... [LIBRARIES TARGET...] [ENVIRONMENT VARIABLE=VALUE...] [THREADED] [ALONE]): one
# test program. THREADED marks it for the thread sanitizer; an ALONE one is not linked to the library, since it brings
# copies of its sources. The program itself is made after every folder has been read, once GoogleTest and testing/ are
# known.
function(dravik_adt_test name)
    cmake_parse_arguments(TEST "THREADED;ALONE" "" "SOURCES;LIBRARIES;ENVIRONMENT" ${ARGN})
    list(TRANSFORM TEST_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
    set_property(GLOBAL APPEND PROPERTY DRAVIK_ADT_TESTS ${name})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_SOURCES ${TEST_SOURCES})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_LIBRARIES ${TEST_LIBRARIES})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_ENVIRONMENT ${TEST_ENVIRONMENT})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_THREADED ${TEST_THREADED})
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_ALONE ${TEST_ALONE})
endfunction()
