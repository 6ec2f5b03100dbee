# How every target of this project is compiled: warnings, sanitizers, coverage. No function of ours is meant to be
# replaced by another one of its name, so that calls within a library need not go through its table of symbols.
add_library(qv_compile INTERFACE)
target_compile_options(qv_compile INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -fno-semantic-interposition)
# What is under which lock: see platform/qvxbase/qvbthreads.h. Tests call what relies on its caller's lock without one.
add_library(qv_check_locks INTERFACE)
target_compile_options(qv_check_locks INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
if(QVREPOSRES_WERROR)
  target_compile_options(qv_compile INTERFACE -Werror)
endif()
if(QVREPOSRES_SANITIZE)
  target_compile_options(qv_compile INTERFACE -fsanitize=${QVREPOSRES_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(qv_compile INTERFACE -fsanitize=${QVREPOSRES_SANITIZE})
  if(QVREPOSRES_SANITIZE MATCHES "undefined")
    target_compile_options(qv_compile INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
if(QVREPOSRES_COVERAGE) # each program and library that counts adds to a file of its own when it ends
  set(QV_COUNT -fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m.profraw)
endif()

# No memory that code is run from can be written to, and the tables that code is found by are read-only.
target_link_options(qv_compile INTERFACE -Wl,-z,relro,-z,now,-z,noexecstack,-z,text)
# What is shipped checks its stack, and the sizes that it gives the C library, where it is optimised, as that needs.
# Sanitizers look at the same things in their own way. Counters are in what is shipped alone, and not in the tests. Since
# all functions of other libraries are found before the first one is called, each is called straight away and not by way of
# code that would look for it.
function(qv_harden target)
  if(QVREPOSRES_COVERAGE)
    target_compile_options(${target} PRIVATE ${QV_COUNT} -fcoverage-mapping)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "OBJECT_LIBRARY")
      target_link_options(${target} INTERFACE ${QV_COUNT})
    else()
      target_link_options(${target} PRIVATE ${QV_COUNT})
    endif()
  elseif(NOT QVREPOSRES_SANITIZE)
    target_compile_options(${target} PRIVATE
      "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2;-fno-plt>")
  endif()
endfunction()

# What a shared library of ours shows: see cmake/exports.map. Its own functions it finds without asking.
function(qv_restrict_exports target)
  target_link_options(${target} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map
                                        -Wl,-Bsymbolic-functions)
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map)
endfunction()
