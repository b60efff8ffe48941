# Only the plug-in counts, so that its tests leave no counts of their own behind. Threads count at once: atomically.
set(ZD_COVERAGE_OPTIONS --coverage -fprofile-update=atomic)

if(ZD_COVERAGE)
  foreach(target IN ITEMS ZdvfsProtocol zd_base zd_log zd_config zd_security zd_namespace)
    target_compile_options(${target} PRIVATE ${ZD_COVERAGE_OPTIONS})
    target_link_options(${target} PUBLIC --coverage)
  endforeach()
endif()

# zd_count_linked_in(target source...): counts those sources of a test program that are the plug-in's own.
function(zd_count_linked_in target)
  if(NOT ZD_COVERAGE)
    return()
  endif()
  foreach(source IN LISTS ARGN)
    if(source MATCHES "^${PROJECT_SOURCE_DIR}/plugin/")
      set_source_files_properties("${source}" PROPERTIES COMPILE_OPTIONS "${ZD_COVERAGE_OPTIONS}")
      target_link_options(${target} PRIVATE --coverage)
    endif()
  endforeach()
endfunction()

# zd_count_header_test(target source...): counts what those tests run of the plug-in's headers. Of the tests themselves
# nothing is reported.
function(zd_count_header_test target)
  if(ZD_COVERAGE)
    set_source_files_properties(${ARGN} PROPERTIES
      COMPILE_OPTIONS "${ZD_COVERAGE_OPTIONS}" SKIP_PRECOMPILE_HEADERS ON)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()
