# cpack: an archive of everything, and, in a build for /usr such as that of the preset `package`, the two Debian
# packages: only there is the library's folder theirs.
set(OXU_MAINTAINER "" CACHE STRING "Who maintains the Debian packages, as \"NAME <ADDRESS>\"")
set(CPACK_GENERATOR TGZ)
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  # First, so that nothing is made where something is missing for them.
  list(PREPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_CURRENT_LIST_DIR}/PackagingNeeds.cmake)
set(CPACK_PACKAGE_NAME libOxuTool)
set(CPACK_PACKAGE_CONTACT ${OXU_MAINTAINER})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development)

set(oxu_runtime_package liboxutool${PROJECT_VERSION_MAJOR})
set(oxu_packages ${oxu_runtime_package} liboxutool-dev)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${oxu_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# How packages of hosts find their dependency, and what the loader is told of the new library.
file(CONFIGURE OUTPUT shlibs
  CONTENT "libOxuTool ${PROJECT_VERSION_MAJOR} ${oxu_runtime_package} (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs ${PROJECT_BINARY_DIR}/triggers)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME liboxutool-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${oxu_runtime_package} (= ${PROJECT_VERSION}-1)")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "This package holds the shared library.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "This package holds the headers, what CMake and pkg-config need, the
manual pages, and examples.")

# What each package of a system has in a folder of its own. It is no part of an installation by hand or of the archive.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  find_program(OXU_GZIP gzip REQUIRED)
  string(TIMESTAMP oxu_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  configure_file(cmake/changelog.Debian.in changelog.Debian @ONLY)
  execute_process(COMMAND ${OXU_GZIP} -9nf changelog.Debian WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    COMMAND_ERROR_IS_FATAL ANY)
  foreach(package component IN ZIP_LISTS oxu_packages CPACK_COMPONENTS_ALL)
    install(FILES ${PROJECT_BINARY_DIR}/changelog.Debian.gz cmake/copyright
      DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
  endforeach()
  install(FILES cmake/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME ${oxu_runtime_package} COMPONENT runtime EXCLUDE_FROM_ALL)
endif()

include(CPack)
