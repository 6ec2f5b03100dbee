# What `cmake --install` lays out: libraries, headers, the CMake package and the pkg-config file. The components are the
# packages of QvPackage.cmake.
include(CMakePackageConfigHelpers)

install(TARGETS qvplatform qvreposres qvlineagegraph EXPORT QvReposResTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
        INCLUDES DESTINATION ${QVREPOSRES_INCLUDEDIR})
install(DIRECTORY include/ DESTINATION ${QVREPOSRES_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")
install(DIRECTORY platform/ DESTINATION ${QVREPOSRES_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h"
        PATTERN "private" EXCLUDE)
install(EXPORT QvReposResTargets NAMESPACE QvReposRes:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QvReposRes
        COMPONENT development)

configure_package_config_file(cmake/QvReposResConfig.cmake.in QvReposResConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QvReposRes)
write_basic_package_version_file(QvReposResConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QvReposResConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QvReposResConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/QvReposRes COMPONENT development)

# Relative to the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH QVREPOSRES_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/qvreposres.pc.in qvreposres.pc @ONLY)
configure_file(cmake/qvlineagegraph.pc.in qvlineagegraph.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qvreposres.pc ${CMAKE_CURRENT_BINARY_DIR}/qvlineagegraph.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

install(DIRECTORY examples/programs examples/repository
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libqvreposres-dev/examples COMPONENT development)
