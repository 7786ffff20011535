# What other builds find the installed library by: a CMake package and a pkg-config file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/rixstats)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/rixstatsConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_LIST_DIR}/rixstatsConfig.cmake ${PROJECT_BINARY_DIR}/rixstatsConfigVersion.cmake
        DESTINATION ${package_dir})
install(EXPORT rixstatsTargets NAMESPACE rixstats:: DESTINATION ${package_dir})
if(RIXSTATS_TOOLS)
  install(EXPORT rixstatsSimulatorTargets NAMESPACE rixstats:: DESTINATION ${package_dir})
endif()

# Written when it is installed: "cmake --install --prefix" decides only then what the file has to tell.
configure_file(${CMAKE_CURRENT_LIST_DIR}/write_pc_file.cmake.in ${PROJECT_BINARY_DIR}/write_pc_file.cmake @ONLY)
install(SCRIPT ${PROJECT_BINARY_DIR}/write_pc_file.cmake)
install(FILES ${PROJECT_BINARY_DIR}/rixstats.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
