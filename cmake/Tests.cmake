find_package(GTest REQUIRED)
include(GoogleTest)

# uploader_tests(engine SOURCES engine/progress_test.cpp ... LIBRARIES engine): one GoogleTest
# program for a folder, engine_tests. CTest runs each case as a process of its own, named
# engine.<suite>.<test>. PROGRAM gives the program another name.
function(uploader_tests folder)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "PROGRAM" "SOURCES;LIBRARIES")
  set(target ${folder}_tests)
  if(arg_PROGRAM)
    set(target ${arg_PROGRAM})
  endif()
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE project_options ${arg_LIBRARIES} GTest::gtest_main)
  # Independent of the session that runs the tests: a window there must not receive their files.
  gtest_discover_tests(${target} TEST_PREFIX ${folder}.
    PROPERTIES TIMEOUT 120 ENVIRONMENT DBUS_SESSION_BUS_ADDRESS=disabled:
    DISCOVERY_TIMEOUT 60)
endfunction()
