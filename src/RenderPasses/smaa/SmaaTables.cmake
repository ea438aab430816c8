# SPDX-License-Identifier: MIT
# The lookup tables of SMAARenderPass are worked out while building, by a program of ours. ${smaa_table_data} is the C++ source
# that it writes.
set(KVZ_SMAA_TABLES "" CACHE FILEPATH
    "The program kvz-smaa-tables of this machine, for builds whose own programs do not run here")
mark_as_advanced(KVZ_SMAA_TABLES)

add_library(KvzSmaaTables STATIC smaa/SmaaTables.cpp)
target_include_directories(KvzSmaaTables PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/smaa")
target_link_libraries(KvzSmaaTables PRIVATE KvzBuildOptions)
# Exact, since the order of operations decides some bytes; optimised also in builds that are not, where the compiler allows that,
# since it is slow otherwise.
if(MSVC)
    target_compile_options(KvzSmaaTables PRIVATE /fp:precise)
else()
    target_compile_options(KvzSmaaTables PRIVATE -O2 -fno-fast-math -ffp-contract=off)
endif()

if(KVZ_SMAA_TABLES)
    set(smaa_tables "${KVZ_SMAA_TABLES}")
else()
    add_executable(kvz-smaa-tables smaa/main.cpp)
    target_link_libraries(kvz-smaa-tables PRIVATE KvzSmaaTables KvzBuildOptions)
    set(smaa_tables kvz-smaa-tables)
endif()

set(smaa_table_data "${CMAKE_CURRENT_BINARY_DIR}/SmaaTableData.cpp")
add_custom_command(OUTPUT "${smaa_table_data}"
    COMMAND ${smaa_tables} "${smaa_table_data}"
    DEPENDS ${smaa_tables}
    COMMENT "Working out the lookup tables of SMAARenderPass"
    VERBATIM)
set_source_files_properties("${smaa_table_data}" PROPERTIES SKIP_AUTOGEN ON)
