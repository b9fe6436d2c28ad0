# What `cmake --install` puts where: the shared library is the component runtime, all else is development.
include(CMakePackageConfigHelpers)

install(TARGETS OxuTool EXPORT OxuToolTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY include/oxu DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")
# Where a Debian package has its examples.
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/liboxutool-dev COMPONENT development)

# A host that links the static library needs what the shared one brings along by itself, a C host too.
get_target_property(oxu_library_type OxuTool TYPE)
set(oxu_pc_static_libs "")
if(oxu_library_type STREQUAL "STATIC_LIBRARY")
  list(JOIN oxu_cxx_libraries " -l" oxu_pc_static_libs)
  set(oxu_pc_static_libs " -l${oxu_pc_static_libs} -pthread")
endif()

set(oxu_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/OxuTool)
configure_package_config_file(cmake/OxuToolConfig.cmake.in OxuToolConfig.cmake INSTALL_DESTINATION ${oxu_package_dir})
write_basic_package_version_file(OxuToolConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(EXPORT OxuToolTargets NAMESPACE OxuTool:: DESTINATION ${oxu_package_dir} COMPONENT development)
install(FILES ${PROJECT_BINARY_DIR}/OxuToolConfig.cmake ${PROJECT_BINARY_DIR}/OxuToolConfigVersion.cmake
  DESTINATION ${oxu_package_dir} COMPONENT development)

# The folders of an installation may have been given as absolute paths.
file(RELATIVE_PATH oxu_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
cmake_path(APPEND oxu_pc_libdir "\${prefix}" ${CMAKE_INSTALL_LIBDIR})
cmake_path(APPEND oxu_pc_includedir "\${prefix}" ${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/oxutool.pc.in oxutool.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/oxutool.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
