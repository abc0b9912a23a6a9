# What `cmake --install` puts under the prefix: the library, its public
# headers as <nvk/<folder>/<file>.h>, a CMake package exporting nvk::nvk, a
# pkg-config file, and the nvk tool.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

target_include_directories(nvk PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)

# The tool finds the library beside it in any prefix, not only in the system's
# library folders.
file(RELATIVE_PATH nvk_bin_to_lib "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
set_target_properties(nvk_tool PROPERTIES INSTALL_RPATH "$ORIGIN/${nvk_bin_to_lib}")

install(TARGETS nvk EXPORT nvkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
install(TARGETS nvk_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)

# Every header of a library folder is public except the *_internal.h ones.
foreach(layer IN LISTS NVK_LAYERS)
  file(GLOB layer_headers CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${layer}/*.h)
  list(FILTER layer_headers EXCLUDE REGEX "_internal\\.h$")
  install(FILES ${layer_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/nvk/${layer} COMPONENT development)
endforeach()

set(nvk_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/nvk)
install(EXPORT nvkTargets NAMESPACE nvk:: DESTINATION ${nvk_cmake_dir} COMPONENT development)
configure_package_config_file(cmake/nvkConfig.cmake.in ${CMAKE_BINARY_DIR}/nvkConfig.cmake
  INSTALL_DESTINATION ${nvk_cmake_dir})
# Same rule as the SOVERSION: before 1.0 a minor release may break the
# interface, from 1.0 on only a major one.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(nvk_compatibility SameMinorVersion)
else()
  set(nvk_compatibility SameMajorVersion)
endif()
write_basic_package_version_file(${CMAKE_BINARY_DIR}/nvkConfigVersion.cmake
  COMPATIBILITY ${nvk_compatibility})
install(FILES ${CMAKE_BINARY_DIR}/nvkConfig.cmake ${CMAKE_BINARY_DIR}/nvkConfigVersion.cmake
  DESTINATION ${nvk_cmake_dir} COMPONENT development)

# The .pc file finds its prefix from where it lies, so that one build can be
# installed under any prefix (a scratch folder, or /usr by the package).
set(nvk_pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH nvk_pc_to_prefix "/${nvk_pc_dir}" "/")
string(REGEX REPLACE "/$" "" nvk_pc_to_prefix "${nvk_pc_to_prefix}")
configure_file(cmake/nvk.pc.in ${CMAKE_BINARY_DIR}/nvk.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/nvk.pc DESTINATION ${nvk_pc_dir} COMPONENT development)
