# What `cpack` makes of an installed tree: three Debian packages, one for each component.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_NAME qvreposres)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package begins its description with its own
set(CPACK_PACKAGE_CONTACT "The library's developers <developers@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/QvPackageStage.cmake)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                                WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development qvrepos)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})

set(library libqvreposres${PROJECT_VERSION_MAJOR})
set(same_library "${library} (= ${PROJECT_VERSION})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${library})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION} - shared libraries
Finds and names the resources of a repository, scans job files for what they touch and keeps their lineage.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqvreposres-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ${same_library})
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "${PROJECT_DESCRIPTION} - development files
The headers, the CMake package, the pkg-config file and example programs.")

set(CPACK_DEBIAN_QVREPOS_PACKAGE_NAME qvrepos)
set(CPACK_DEBIAN_QVREPOS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_QVREPOS_PACKAGE_DEPENDS ${same_library})
set(CPACK_DEBIAN_QVREPOS_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_QVREPOS_DESCRIPTION
    "${PROJECT_DESCRIPTION} - host tool
The services of the library on the command line, with a manual page and completions for bash and zsh.")

include(CPack)
