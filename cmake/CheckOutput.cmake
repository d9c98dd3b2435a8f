# SPDX-License-Identifier: Apache-2.0
# cmake -DPROGRAM=FILE -DEXPECTED=FILE -P CheckOutput.cmake: runs a program, which has to succeed and to print exactly
# what stands in the file.

execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE result)
file(READ ${EXPECTED} expected)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${PROGRAM} ended with ${result} after printing:\n${printed}")
endif()
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "${PROGRAM} printed:\n${printed}instead of:\n${expected}")
endif()
