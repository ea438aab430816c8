# SPDX-License-Identifier: MIT
# The package that find_package(Kvz) finds.
include(CMakePackageConfigHelpers)

get_property(KVZ_COMPONENTS GLOBAL PROPERTY KVZ_COMPONENTS)
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/KvzConfig.cmake.in" "${PROJECT_BINARY_DIR}/KvzConfig.cmake"
    INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Kvz")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/KvzConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/KvzConfig.cmake" "${PROJECT_BINARY_DIR}/KvzConfigVersion.cmake"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/Kvz")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/Media/" DESTINATION "${CMAKE_INSTALL_DATADIR}/Kvz")
install(FILES "${PROJECT_SOURCE_DIR}/LICENSE" DESTINATION "${CMAKE_INSTALL_DATADIR}/Kvz")
