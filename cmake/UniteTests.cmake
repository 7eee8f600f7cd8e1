# The tests of a program are compiled as one source, since most of a compiler's time goes into headers and templates that
# they share. Without it, each source is seen to include what it uses, and a source that is changed is compiled alone.
option(QUARVEL_UNITE_TESTS "Compile the tests of each test program as one source" OFF)

# quarvel_unite_tests(TARGET SOURCE...): adds sources of tests, all as one. Each has a namespace of its own there, so
# their names may be the same; what they include is included before.
function(quarvel_unite_tests target)
  list(LENGTH ARGN count)
  if(NOT QUARVEL_UNITE_TESTS OR count LESS 2)
    target_sources(${target} PRIVATE ${ARGN})
    return()
  endif()
  set(united ${PROJECT_BINARY_DIR}/unity/${target}.cpp)
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE paths)
  add_custom_command(OUTPUT ${united} DEPENDS ${paths} ${PROJECT_SOURCE_DIR}/scripts/lib/unite-tests
    COMMAND ${PROJECT_SOURCE_DIR}/scripts/lib/unite-tests ${PROJECT_SOURCE_DIR} ${paths} >${united})
  target_sources(${target} PRIVATE ${united})
  # Types of unnamed namespaces may be bases here: nothing but this one source includes them.
  target_compile_options(${target} PRIVATE -Wno-subobject-linkage)
endfunction()
