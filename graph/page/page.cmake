# Compiles the page's template into the library: included by graph/CMakeLists.txt.
set(page_source ${CMAKE_CURRENT_BINARY_DIR}/pagetemplate.cpp)
add_custom_command(
  OUTPUT ${page_source}
  COMMAND ${CMAKE_COMMAND} -D INPUT=${CMAKE_CURRENT_LIST_DIR}/bundle/page.html -D OUTPUT=${page_source}
          -P ${CMAKE_CURRENT_LIST_DIR}/embed.cmake
  DEPENDS ${CMAKE_CURRENT_LIST_DIR}/bundle/page.html ${CMAKE_CURRENT_LIST_DIR}/embed.cmake
  VERBATIM)
target_sources(qvlineagegraph_objects PRIVATE ${page_source})
