find_package(GTest REQUIRED)
include(GoogleTest)

# uploader_test(engine/retry_schedule_test.cpp engine): one program per source, its tests named
# engine.<suite>.<test>. RESOURCE keeps tests that need the same thing from running side by side.
function(uploader_test source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT;RESOURCE" "")
  get_filename_component(folder ${source} DIRECTORY)
  get_filename_component(unit ${source} NAME_WE)
  string(REPLACE "/" "." folder ${folder})
  set(target ${folder}.${unit})
  add_executable(${target} ${source})
  target_link_libraries(${target} PRIVATE
    project_options ${arg_UNPARSED_ARGUMENTS} GTest::gtest_main)
  set(properties TIMEOUT 120)
  if(arg_TIMEOUT)
    set(properties TIMEOUT ${arg_TIMEOUT})
  endif()
  if(arg_RESOURCE)
    list(APPEND properties RESOURCE_LOCK ${arg_RESOURCE})
  endif()
  gtest_discover_tests(${target} TEST_PREFIX ${folder}. PROPERTIES ${properties}
    DISCOVERY_TIMEOUT 60)
endfunction()
