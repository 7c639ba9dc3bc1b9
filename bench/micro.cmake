# The parts by themselves, timed by Google Benchmark. Included by this folder's CMakeLists.txt.
find_package(benchmark REQUIRED)

add_executable(quenmoor-micro-bench micro_bench.cpp)
target_link_libraries(quenmoor-micro-bench PRIVATE engine benchmark::benchmark)
set_target_properties(quenmoor-micro-bench PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})

if(BUILD_WINDOW)
  add_executable(quenmoor-table-bench table_bench.cpp)
  target_link_libraries(quenmoor-table-bench PRIVATE ui benchmark::benchmark)
  set_target_properties(quenmoor-table-bench PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
endif()
