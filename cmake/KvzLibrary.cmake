# SPDX-License-Identifier: MIT
# What all libraries, programs and tests of this project share.

# With precompiled headers ccache must not insist on their times and macros.
find_program(KVZ_CCACHE ccache)
if(KVZ_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_SLOPPINESS=pch_defines,time_macros "${KVZ_CCACHE}")
endif()

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
# An installed program finds the libraries beside it wherever the prefix lies.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

add_library(KvzBuildOptions INTERFACE)
target_compile_options(KvzBuildOptions INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wno-unused-parameter $<$<BOOL:${KVZ_WARNINGS_AS_ERRORS}>:-Werror>)
target_compile_definitions(KvzBuildOptions INTERFACE QT_DISABLE_DEPRECATED_BEFORE=0x050C00 QT_NO_KEYWORDS
    QT_NO_CAST_TO_ASCII)
if(KVZ_SANITIZE)
    target_compile_options(KvzBuildOptions INTERFACE -O1 -g1 -fsanitize=address,undefined -fno-omit-frame-pointer
        -fno-sanitize-recover=undefined)
    target_link_options(KvzBuildOptions INTERFACE -fsanitize=address,undefined)
endif()

# Half of the time of a build went into reading headers from outside, so that these are compiled once. Only headers from
# outside: a change of ours rebuilds what it must and no more.
# kvz_make_precompiled(TARGET [HEADER...]) makes TARGET compile them, and further ones.
function(kvz_make_precompiled target)
    if(KVZ_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/Precompiled.h" ${ARGN})
        target_compile_options(${target} PRIVATE ${KVZ_PRECOMPILE_OPTIONS})
    endif()
endfunction()
set(KVZ_PRECOMPILE_OPTIONS $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>) # For ccache.

add_library(KvzPrecompiled OBJECT "${CMAKE_CURRENT_LIST_DIR}/Precompiled.cpp")
target_link_libraries(KvzPrecompiled PRIVATE Qt5::Core Qt5::Gui PkgConfig::EPOXY KvzBuildOptions)
kvz_make_precompiled(KvzPrecompiled)

# kvz_precompile(TARGET [FROM]): lets a target read the precompiled headers of FROM, those of all libraries if none is named.
function(kvz_precompile target)
    set(from KvzPrecompiled ${ARGN})
    list(GET from -1 from)
    if(KVZ_PRECOMPILE_HEADERS)
        target_precompile_headers(${target} REUSE_FROM ${from})
        target_compile_options(${target} PRIVATE ${KVZ_PRECOMPILE_OPTIONS})
    endif()
endfunction()

# kvz_compile_together(TARGET COUNT): the compiler reads COUNT sources of TARGET at a time, and what they share once. Names of
# unnamed namespaces then have to differ within the target.
function(kvz_compile_together target count)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ${KVZ_COMPILE_TOGETHER} UNITY_BUILD_BATCH_SIZE ${count})
endfunction()

# kvz_add_library(NAME [MOC] SOURCES ... HEADERS ... PUBLIC ... PRIVATE ...)
# Adds the shared library libKvzNAME, known to users as Kvz::NAME, and installs it as the component NAME.
# HEADERS are public headers relative to include/. MOC: some of its classes have Q_OBJECT.
function(kvz_add_library name)
    cmake_parse_arguments(ARG "MOC" "" "SOURCES;HEADERS;PUBLIC;PRIVATE" ${ARGN})
    set(target Kvz${name})
    list(TRANSFORM ARG_HEADERS PREPEND "${PROJECT_SOURCE_DIR}/include/" OUTPUT_VARIABLE header_files)
    add_library(${target} SHARED ${ARG_SOURCES} ${header_files})
    add_library(Kvz::${name} ALIAS ${target})
    string(TOUPPER ${name} upper)
    target_compile_definitions(${target} PRIVATE KVZ_${upper}_LIBRARY)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/Kvz>)
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src")
    target_link_libraries(${target} PUBLIC ${ARG_PUBLIC} PRIVATE ${ARG_PRIVATE} $<BUILD_INTERFACE:KvzBuildOptions>)
    target_compile_features(${target} PUBLIC cxx_std_17)
    kvz_precompile(${target})
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
        EXPORT_NAME ${name} AUTOMOC ${ARG_MOC} AUTORCC ON)
    install(TARGETS ${target} EXPORT Kvz${name}Targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name})
    foreach(header IN LISTS ARG_HEADERS)
        get_filename_component(folder "${header}" DIRECTORY)
        install(FILES "${PROJECT_SOURCE_DIR}/include/${header}"
            DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/Kvz/${folder}" COMPONENT ${name})
    endforeach()
    install(EXPORT Kvz${name}Targets NAMESPACE Kvz::
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Kvz" COMPONENT ${name})
    set_property(GLOBAL APPEND PROPERTY KVZ_COMPONENTS ${name})
    set_property(GLOBAL APPEND PROPERTY KVZ_PUBLIC_HEADERS ${ARG_HEADERS})
endfunction()
