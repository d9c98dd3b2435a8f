# SPDX-License-Identifier: Apache-2.0
# The table of fault situations: one test program as everything else is built, and one for each set of compiler options
# under which a fault may find other code around it. There, guard and situations are compiled with these options; the test
# that drives them is compiled once.

set(situations ${CMAKE_CURRENT_SOURCE_DIR}/../testing/fault_situations.cpp)
list(TRANSFORM fault_sources PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE guard_sources)

# What a fault leaves behind is lost, as it has to be, and the host's handlers of the table are not the sanitizers'. These
# clear a whole stack's shadow at every jump, which makes the long run both slow and large.
set(sanitizer_options "ASAN_OPTIONS=detect_leaks=0:handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0")

add_library(fault_guard_driver OBJECT fault_guard_test.cpp)
dravik_adt_configure_target(fault_guard_driver)
target_link_libraries(fault_guard_driver PRIVATE dravik::adt dravik_adt_testing)

# dravik_adt_fault_guard_test(NAME [OPTIONS OPTION...] [OBJECTS FILE...]): with OPTIONS, guard and situations are compiled
# with them; OBJECTS are guard and situations compiled elsewhere.
function(dravik_adt_fault_guard_test name)
    cmake_parse_arguments(TEST "" "" "OPTIONS;OBJECTS" ${ARGN})
    set(arguments --gtest_brief=1)
    if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
        list(APPEND arguments --gtest_filter=FaultGuard.ServesManyThreadsAtOnce)  # its runtime takes over signal handling
    elseif(TEST_OPTIONS OR TEST_OBJECTS OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
        list(APPEND arguments --gtest_filter=-FaultGuard.DoesNotGrow)  # about memory, which no option changes
    endif()
    add_executable(${name} $<TARGET_OBJECTS:fault_guard_driver> ${TEST_OBJECTS})
    if(TEST_OPTIONS)
        target_sources(${name} PRIVATE ${guard_sources} ${situations})
    elseif(NOT TEST_OBJECTS)
        target_link_libraries(${name} PRIVATE dravik_adt_fault_situations)
    endif()
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
    dravik_adt_configure_target(${name})
    target_compile_options(${name} PRIVATE ${TEST_OPTIONS})
    target_link_options(${name} PRIVATE ${TEST_OPTIONS})
    target_link_libraries(${name} PRIVATE dravik::adt dravik_adt_testing GTest::gmock_main)
    add_test(NAME ${name} COMMAND ${name} ${arguments})
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${sanitizer_options}")
endfunction()

dravik_adt_fault_guard_test(fault_guard_test)
set_tests_properties(fault_guard_test PROPERTIES LABELS threads)
if(NOT TARGET threaded_tests)
    add_custom_target(threaded_tests)
endif()
add_dependencies(threaded_tests fault_guard_test)

# The sanitizers change the code that the options are about.
if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    return()
endif()

set(hardening -D_FORTIFY_SOURCE=2 -fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
dravik_adt_fault_guard_test(fault_guard_gcc_o0_test OPTIONS -O0)
dravik_adt_fault_guard_test(fault_guard_gcc_o2_test OPTIONS -O2)
dravik_adt_fault_guard_test(fault_guard_gcc_o3_hardened_test OPTIONS -O3 ${hardening})
dravik_adt_fault_guard_test(fault_guard_gcc_lto_test OPTIONS -O3 -flto=1)

find_program(DRAVIK_ADT_CLANG clang++)
mark_as_advanced(DRAVIK_ADT_CLANG)
if(NOT DRAVIK_ADT_CLANG)
    return()
endif()
foreach(level IN ITEMS O0 O3)
    set(objects)
    foreach(source IN LISTS guard_sources situations)
        get_filename_component(stem ${source} NAME_WE)
        set(object ${CMAKE_CURRENT_BINARY_DIR}/clang_${level}/${stem}.o)
        add_custom_command(
            OUTPUT ${object}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/clang_${level}
            COMMAND ${CMAKE_CXX_COMPILER_LAUNCHER} ${DRAVIK_ADT_CLANG} -std=c++20 -${level} -fPIE -MD -MF ${object}.d -I
                    ${PROJECT_SOURCE_DIR} -c ${source} -o ${object}
            DEPENDS ${source}
            DEPFILE ${object}.d
            VERBATIM)
        list(APPEND objects ${object})
    endforeach()
    string(TOLOWER ${level} suffix)
    dravik_adt_fault_guard_test(fault_guard_clang_${suffix}_test OBJECTS ${objects})
endforeach()
