# SPDX-License-Identifier: MIT
# runs_once(<sources...>): code that a run of a program passes once, such as the reading of a command line.
# The compiler needs a quarter less time to optimise it a little than to optimise it much.
function(runs_once)
  set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS $<$<NOT:$<CONFIG:Debug>>:-O1>)
endfunction()

# precompiled_headers(<name> <headers...> LIBS <libraries...>): the headers, read by the
# compiler once. A program takes them by target_precompile_headers(<program> REUSE_FROM
# <name>); a library cannot, since its code is compiled in another way (-fPIC, not -fPIE).
function(precompiled_headers name)
  cmake_parse_arguments(arg "" "" "LIBS" ${ARGN})
  file(CONFIGURE OUTPUT ${name}.cpp CONTENT "// CMake wants a source for each target.\n")
  add_library(${name} OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${name} PRIVATE -fPIE)
  target_link_libraries(${name} PRIVATE ${arg_LIBS} tarnwick_options)
  target_precompile_headers(${name} PRIVATE ${arg_UNPARSED_ARGUMENTS})
endfunction()
