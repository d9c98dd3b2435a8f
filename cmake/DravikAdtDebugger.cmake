# SPDX-License-Identifier: Apache-2.0
# What gdb shows of our types in a user's own build: printers, and the types that the library compiles, which a compiler
# describes nowhere else without flags of its own. In the build they lie where they do once installed.

set(printers ${PROJECT_SOURCE_DIR}/tools/gdb/dravik_adt_printers.py)
set(printers_name libdravik_adt.so.${PROJECT_VERSION}-gdb.py)
set(types ${PROJECT_BINARY_DIR}/dravik_adt/types.gz)

add_library(dravik_adt_types OBJECT ${PROJECT_SOURCE_DIR}/tools/gdb/types.cpp)
dravik_adt_configure_target(dravik_adt_types)
target_link_libraries(dravik_adt_types PRIVATE dravik::adt)
target_compile_options(dravik_adt_types PRIVATE -g -O0 -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.
                                                $<$<CXX_COMPILER_ID:GNU>:-femit-class-debug-always>
                                                $<$<CXX_COMPILER_ID:Clang>:-fstandalone-debug>)
add_custom_command(
    OUTPUT ${types} DEPENDS $<TARGET_OBJECTS:dravik_adt_types> ${printers}
    COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/dravik_adt
    COMMAND ${CMAKE_COMMAND} -E copy ${printers} $<TARGET_FILE_DIR:dravik_adt>/${printers_name}
    # A file of its own name and time would make every package another one.
    COMMAND gzip --best --no-name --stdout $<TARGET_OBJECTS:dravik_adt_types> > ${types} VERBATIM)
add_custom_target(dravik_adt_debugger ALL DEPENDS ${types})

install(FILES ${types} DESTINATION ${CMAKE_INSTALL_LIBDIR}/dravik_adt COMPONENT development)
# gdb looks in a folder of its own for what belongs to the libraries of the system, and beside all others.
install(FILES ${printers} DESTINATION share/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR} RENAME ${printers_name}
        COMPONENT development)
install(CODE "if(NOT CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    file(INSTALL DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}\" TYPE FILE RENAME ${printers_name}
         FILES \"${printers}\")
endif()" COMPONENT development)
