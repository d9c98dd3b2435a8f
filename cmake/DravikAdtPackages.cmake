# SPDX-License-Identifier: Apache-2.0
# The Debian packages: the library, what building against it needs, its documentation, and its debug symbols; and a
# library and what building against it needs for each companion.

set(runtime_package libdravik-adt${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(development_package libdravik-adt-dev)
set(documentation_package libdravik-adt-doc)

# What the policy asks of every package: its licence, and its changes in the form that apt shows.
get_property(companions GLOBAL PROPERTY DRAVIK_ADT_COMPANIONS)
set(components runtime development documentation)
foreach(companion IN LISTS companions)
    get_property(package GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${companion}_PACKAGE)
    # A digit at the end of the name is set apart from the version, as the policy wants it.
    string(REGEX REPLACE "([0-9])$" "\\1-" separated ${package})
    set(${companion}_runtime_package ${separated}${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
    set(${companion}_development_package ${package}-dev)
    list(APPEND components ${companion}_runtime ${companion}_development)
endforeach()
get_property(python_is_built GLOBAL PROPERTY DRAVIK_ADT_PYTHON_IS_BUILT)
set(python_package python3-dravik-adt)
if(python_is_built)
    list(APPEND components python)
endif()
get_property(command_is_built GLOBAL PROPERTY DRAVIK_ADT_COMMAND_IS_BUILT)
set(tools_package dravik-tools)
if(command_is_built)
    list(APPEND components tools)
endif()
set(debian_dir ${PROJECT_BINARY_DIR}/debian)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/copyright.in ${debian_dir}/copyright @ONLY)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${debian_dir}/changelog @ONLY)
execute_process(COMMAND gzip --best --no-name --force --keep ${debian_dir}/changelog COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS components)
    install(FILES ${debian_dir}/copyright DESTINATION share/doc/${${component}_package} COMPONENT ${component})
    install(FILES ${debian_dir}/changelog.gz RENAME changelog.gz
            DESTINATION share/doc/${${component}_package} COMPONENT ${component})
endforeach()

# The pages as they are read in the source, the reference if `./dev docs` has built it, and the examples.
set(documentation_dir share/doc/${documentation_package})
install(DIRECTORY docs/ DESTINATION ${documentation_dir} COMPONENT documentation FILES_MATCHING
        PATTERN "*.md" PATTERN "*.png" PATTERN "*.svg")
install(FILES README.md CHANGELOG.md DESTINATION ${documentation_dir} COMPONENT documentation)
install(DIRECTORY examples/ DESTINATION ${documentation_dir}/examples COMPONENT documentation FILES_MATCHING
        PATTERN "*.cpp" PATTERN "*.h" PATTERN "*.py" PATTERN "*.txt" PATTERN "CMakeLists.txt" EXCLUDE)
install(DIRECTORY build/docs/html DESTINATION ${documentation_dir} COMPONENT documentation OPTIONAL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME dravik-adt)
set(CPACK_PACKAGE_CONTACT "dravik-adt maintainers <maintainers@example.org>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES OFF)  # what is stripped goes into the package of debug symbols
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# Where the libraries lie that those of other packages need.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
foreach(companion IN LISTS companions)
    get_target_property(folder dravik_${companion} BINARY_DIR)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${folder})
endforeach()
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)
# The loader learns of a new library without being told by hand.
file(WRITE ${debian_dir}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${debian_dir}/triggers")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "data types for bulk numeric data (shared library)
Seismic volumes, grids and other sampled data far larger than memory:
index types, blocks of samples on loan, filters that subset, convert and
cache, and typed views that read and write single samples.
.
This package holds the library that programs need to run.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${runtime_package} (= ${PROJECT_VERSION}), libboost-dev (>= 1.74)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "${documentation_package}")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "data types for bulk numeric data (headers and build files)
Headers, CMake and pkg-config files, and gdb's printers, for programs that
are built on the library.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME ${documentation_package})
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_DOCUMENTATION_DESCRIPTION
    "data types for bulk numeric data (documentation)
Concept pages, the reference and example programs.")

foreach(companion IN LISTS companions)
    foreach(property COMPANIONS SUMMARY DESCRIPTION)
        get_property(${property} GLOBAL PROPERTY DRAVIK_ADT_COMPANION_${companion}_${property})
    endforeach()
    string(TOUPPER ${companion} upper)
    set(runtime_needs "${runtime_package} (= ${PROJECT_VERSION})")
    set(development_needs "${development_package} (= ${PROJECT_VERSION})")
    foreach(needed IN LISTS COMPANIONS)
        string(APPEND runtime_needs ", ${${needed}_runtime_package} (= ${PROJECT_VERSION})")
        string(APPEND development_needs ", ${${needed}_development_package} (= ${PROJECT_VERSION})")
    endforeach()
    set(CPACK_DEBIAN_${upper}_RUNTIME_PACKAGE_NAME ${${companion}_runtime_package})
    set(CPACK_DEBIAN_${upper}_RUNTIME_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_${upper}_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_${upper}_RUNTIME_PACKAGE_DEPENDS ${runtime_needs})
    set(CPACK_DEBIAN_${upper}_RUNTIME_DEBUGINFO_PACKAGE ON)
    set(CPACK_DEBIAN_${upper}_RUNTIME_PACKAGE_CONTROL_EXTRA "${debian_dir}/triggers")
    set(CPACK_COMPONENT_${upper}_RUNTIME_DESCRIPTION "${SUMMARY} (shared library)\n${DESCRIPTION}")
    set(CPACK_DEBIAN_${upper}_DEVELOPMENT_PACKAGE_NAME ${${companion}_development_package})
    set(CPACK_DEBIAN_${upper}_DEVELOPMENT_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_${upper}_DEVELOPMENT_PACKAGE_DEPENDS
        "${${companion}_runtime_package} (= ${PROJECT_VERSION}), ${development_needs}")
    set(CPACK_COMPONENT_${upper}_DEVELOPMENT_DESCRIPTION
        "${SUMMARY} (headers and build files)\n${DESCRIPTION}\n.\nThis package holds headers and CMake files.")
endforeach()

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME ${python_package})
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(libraries_needed "${runtime_package} (= ${PROJECT_VERSION})")
foreach(companion IN LISTS companions)
    string(APPEND libraries_needed ", ${${companion}_runtime_package} (= ${PROJECT_VERSION})")
endforeach()
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= 3.11), python3 (<< 3.12), python3-numpy-abi9, ${libraries_needed}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-dask, python3-xarray")
set(CPACK_DEBIAN_PYTHON_DEBUGINFO_PACKAGE ON)
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
    "data types for bulk numeric data (Python)
Opens definitions and files of seismic volumes, grids and other sampled data
far larger than memory, hands blocks of samples to numpy without a copy, and
opens the same chain in every worker of a Dask cluster.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${tools_package})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION science)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${libraries_needed}, fonts-dejavu-core")
set(CPACK_DEBIAN_TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "look into, cut, convert and draw volumes and grids
The program dravik: tells what files of seismic volumes, grids and other
sampled data hold, copies parts of them between formats and sample types in
bounded memory, counts their samples, compares them and draws pictures.")

include(CPack)
