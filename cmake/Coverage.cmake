# JX_COVERAGE: what a target named to jx_count_coverage() compiles counts which of its lines and branches run (GCC alone).
# The counters are written when a program ends, by a signal or _exit too.
option(JX_COVERAGE "count which lines and branches of the subsystems run" OFF)
if(JX_COVERAGE)
  add_library(jx_coverage_dump OBJECT ${CMAKE_SOURCE_DIR}/tests/coverage/dump.c)
endif()

function(jx_count_coverage)
  if(JX_COVERAGE)
    foreach(target IN LISTS ARGN)
      target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
      target_link_options(${target} PUBLIC --coverage)
      target_sources(${target} INTERFACE $<TARGET_OBJECTS:jx_coverage_dump>)
    endforeach()
  endif()
endfunction()
