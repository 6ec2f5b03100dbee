# The target `package`: three Debian packages, one for each component, in <build>/packages. It builds what they hold and
# no tests; what else packing writes stays in <build>/packaging.
block()
set(CPACK_OUTPUT_CONFIG_FILE ${PROJECT_BINARY_DIR}/packaging/CPackConfig.cmake)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
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
file(WRITE ${PROJECT_BINARY_DIR}/packaging/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/packaging/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "${PROJECT_DESCRIPTION} - shared libraries
Finds and names the resources of a repository, scans job files for what
they touch and keeps their lineage.")

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
The services of the library on the command line, with a manual page and
completions for bash and zsh.")

include(CPack)
endblock()

# What each package says of itself in its folder of documents: the changes, as Debian writes them, and the terms.
set(packaging ${PROJECT_BINARY_DIR}/packaging)
execute_process(COMMAND sed -n "s/^- /  * /p" ${PROJECT_SOURCE_DIR}/CHANGELOG.md
                COMMAND fold -s -w 72
                COMMAND sed "s/^\\([^ ]\\)/    \\1/; s/ *$//"
                OUTPUT_VARIABLE entries COMMAND_ERROR_IS_FATAL ANY)
file(TIMESTAMP ${PROJECT_SOURCE_DIR}/CHANGELOG.md date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(CONFIGURE OUTPUT ${packaging}/changelog @ONLY CONTENT
"qvreposres (@PROJECT_VERSION@) unstable; urgency=medium

@entries@
 -- The library's developers <developers@localhost>  @date@
")
execute_process(COMMAND gzip -9nkf ${packaging}/changelog COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/CHANGELOG.md)
foreach(pair runtime=libqvreposres${PROJECT_VERSION_MAJOR} development=libqvreposres-dev qvrepos=qvrepos)
  string(REPLACE "=" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES ${packaging}/changelog.gz ${PROJECT_SOURCE_DIR}/cmake/copyright
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
  if(EXISTS ${PROJECT_SOURCE_DIR}/cmake/lintian/${package})
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/lintian/${package}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  endif()
endforeach()
# The page that the lineage graph writes is made of others' work, whose terms go with it.
install(FILES ${PROJECT_SOURCE_DIR}/graph/page/bundle/LICENCES
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqvreposres${PROJECT_VERSION_MAJOR} RENAME LICENCES.page
        COMPONENT runtime)

# CPack's own target of this name would build everything. It is there where the configuration has its usual place.
file(REMOVE ${PROJECT_BINARY_DIR}/CPackConfig.cmake)
add_custom_target(package COMMAND ${CMAKE_CPACK_COMMAND} --config packaging/CPackConfig.cmake
                  DEPENDS qvplatform qvreposres qvlineagegraph qvrepos_share
                  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} USES_TERMINAL VERBATIM)
