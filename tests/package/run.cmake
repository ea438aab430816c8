# SPDX-License-Identifier: MIT
function(run what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
    message(STATUS "${what}: ok\n${output}")
endfunction()

file(REMOVE_RECURSE "${WORK_DIR}")
set(flags "")
if(SANITIZE)
    set(flags "-fsanitize=address,undefined")
endif()
run("install" ${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${WORK_DIR}/prefix")
run("configure" ${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix" "-DCMAKE_CXX_FLAGS=${flags}" -DCMAKE_BUILD_TYPE=Release)
run("build" ${CMAKE_COMMAND} --build "${WORK_DIR}/build")
run("two-passes" "${WORK_DIR}/build/two-passes")
run("render-model" "${WORK_DIR}/build/render-model" "${MODEL}" "${WORK_DIR}/picture.png")
if(NOT EXISTS "${WORK_DIR}/picture.png")
    message(FATAL_ERROR "render-model wrote no picture")
endif()

# A component that does not exist is refused with a line that names those that do.
file(WRITE "${WORK_DIR}/unknown/CMakeLists.txt" "cmake_minimum_required(VERSION 3.22)\nproject(Unknown LANGUAGES CXX)\nfind_package(Kvz REQUIRED COMPONENTS Windows)\n")
execute_process(COMMAND ${CMAKE_COMMAND} -S "${WORK_DIR}/unknown" -B "${WORK_DIR}/unknown/build"
    "-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix" RESULT_VARIABLE result ERROR_VARIABLE output OUTPUT_QUIET)
if(result EQUAL 0 OR NOT output MATCHES "no component 'Windows'")
    message(FATAL_ERROR "an unknown component was not refused as it should be:\n${output}")
endif()
