# SPDX-License-Identifier: Apache-2.0
# Makes the test programs that the folders asked for, and the checks of the tree itself.

# Makes those that were asked for since the last call, in the calling folder.
function(dravik_adt_add_deferred_tests)
    get_property(names GLOBAL PROPERTY DRAVIK_ADT_TESTS)
    # All that the thread sanitizer has to look at.
    if(NOT TARGET threaded_tests)
        add_custom_target(threaded_tests)
    endif()
    foreach(name IN LISTS names)
        get_property(sources GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_SOURCES)
        get_property(libraries GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_LIBRARIES)
        get_property(environment GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_ENVIRONMENT)
        get_property(threaded GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_THREADED)
        get_property(alone GLOBAL PROPERTY DRAVIK_ADT_TEST_${name}_ALONE)
        add_executable(${name} ${sources})
        dravik_adt_configure_target(${name})
        # Half the time to compile; what is tested is in the library, which is built as it ships.
        target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O1>)
        if(NOT alone)
            target_link_libraries(${name} PRIVATE dravik::adt dravik_adt_testing)
        endif()
        target_link_libraries(${name} PRIVATE ${libraries} GTest::gmock_main)
        add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
        set_tests_properties(${name} PROPERTIES ENVIRONMENT "${environment}")
        if(threaded)
            set_tests_properties(${name} PROPERTIES LABELS threads)
            add_dependencies(threaded_tests ${name})
        endif()
    endforeach()
    set_property(GLOBAL PROPERTY DRAVIK_ADT_TESTS)
endfunction()

# The tree's own rules: who may include whom, every test file in a target, no symbol exported that is not ours.
function(dravik_adt_add_structure_tests)
    find_package(Python3 REQUIRED COMPONENTS Interpreter)
    add_test(NAME structure
             COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/check_structure.py
                     --source ${PROJECT_SOURCE_DIR} --compile-commands ${CMAKE_BINARY_DIR}/compile_commands.json
                     --compiler ${CMAKE_CXX_COMPILER})
    add_test(NAME symbols
             COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/check_symbols.py --nm ${CMAKE_NM}
                     --library $<TARGET_FILE:dravik_adt>
                     --header ${PROJECT_SOURCE_DIR}/dravik/adt/bulkview/old/controller_functions.h)
endfunction()

# One source per public header that includes nothing else: a header that leans on another one does not compile.
function(dravik_adt_add_headers_alone)
    set(folders dravik/adt)
    set(libraries dravik::adt)
    get_property(companions GLOBAL PROPERTY DRAVIK_ADT_COMPANIONS)
    foreach(companion IN LISTS companions)
        get_property(folder GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${companion}_FOLDER)
        list(APPEND folders ${folder})
        list(APPEND libraries dravik::${companion})
    endforeach()
    list(TRANSFORM folders REPLACE "(.+)" "${PROJECT_SOURCE_DIR}/\\1/*.h")
    file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${folders})
    list(FILTER headers EXCLUDE REGEX "dravik/adt/(platform|testing)/")
    list(FILTER headers EXCLUDE REGEX "dravik/(text|files)/(.*/)?(detail|testing)/")
    set(units)
    foreach(header IN LISTS headers)
        string(REPLACE "/" "_" unit ${header})
        string(REGEX REPLACE "\\.h$" ".cpp" unit ${CMAKE_BINARY_DIR}/headers_alone/${unit})
        file(CONFIGURE OUTPUT ${unit} CONTENT "#include <${header}>  // IWYU pragma: keep\n")
        list(APPEND units ${unit})
    endforeach()
    add_library(headers_alone OBJECT ${units})
    dravik_adt_configure_target(headers_alone)
    target_link_libraries(headers_alone PRIVATE ${libraries})
endfunction()

# A stranger's project, in each way that it may find the library.
function(dravik_adt_add_install_tests)
    foreach(way find_package pkg_config static add_subdirectory)
        add_test(NAME stranger_${way} COMMAND ${PROJECT_SOURCE_DIR}/tools/check_install.sh ${way} ${PROJECT_SOURCE_DIR}
                                              ${PROJECT_BINARY_DIR} ${CMAKE_CXX_COMPILER})
    endforeach()
endfunction()

# What gdb shows of a value is what the value prints, in a program that is built with -g alone.
function(dravik_adt_add_printer_test)
    find_program(gdb gdb REQUIRED)
    add_executable(printers_sample ${PROJECT_SOURCE_DIR}/tools/gdb/printers_sample.cpp)
    dravik_adt_configure_target(printers_sample)
    target_compile_options(printers_sample PRIVATE -g -O0)
    target_link_libraries(printers_sample PRIVATE dravik::adt)
    add_dependencies(printers_sample dravik_adt_debugger)
    add_test(NAME gdb_printers
             COMMAND ${PROJECT_SOURCE_DIR}/tools/gdb/check_printers.sh $<TARGET_FILE:printers_sample>
                     $<TARGET_FILE_DIR:dravik_adt>)
endfunction()
