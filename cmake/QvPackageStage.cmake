# Run on the staged files of each package: what lies in the system's own folders needs no folder to search.
file(GLOB_RECURSE staged ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*.so.* ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/bin/*)
foreach(file ${staged})
  if(NOT IS_SYMLINK ${file})
    file(RPATH_REMOVE FILE ${file})
  endif()
endforeach()
