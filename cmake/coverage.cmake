# Only the plug-in counts, so that its tests leave no counts of their own behind. Threads count at once: atomically.
set(ZD_COVERAGE_OPTIONS --coverage -fprofile-update=atomic)

set(ZD_COUNTED ZdvfsProtocol zd_base zd_log zd_config zd_security zd_namespace)

if(ZD_COVERAGE)
  foreach(target IN LISTS ZD_COUNTED)
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
      set_target_properties(${target} PROPERTIES ZD_COUNTS ON)
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

# zd_tell_counting(program...): tells tools/coverage which of the test programs hold code that counts. The others are no
# different from those of the preset release.
function(zd_tell_counting)
  set(counting "")
  foreach(program IN LISTS ARGN)
    get_target_property(counts ${program} ZD_COUNTS)
    get_target_property(libraries ${program} LINK_LIBRARIES)
    foreach(library IN LISTS libraries)
      if(library IN_LIST ZD_COUNTED)
        set(counts ON)
      endif()
    endforeach()
    if(counts)
      list(APPEND counting ${program})
    endif()
  endforeach()
  list(JOIN counting "\n" counting)
  file(WRITE "${CMAKE_BINARY_DIR}/counting-tests.txt" "${counting}\n")
endfunction()
