# What every target is built with. Warnings are errors.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

add_library(project_options INTERFACE)
target_include_directories(project_options INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(project_options INTERFACE
  -Wall -Wextra -Wpedantic -Werror
  -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-qual
  -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough
  -Wformat=2 -Wundef)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Wrong about std::string's operator+ when it optimises (GCC bug 105329).
  target_compile_options(project_options INTERFACE -Wno-restrict)
endif()

# Given to the whole build, so that no two halves of it disagree.
if(SANITIZE)
  list(JOIN SANITIZE "," sanitizers)
  add_compile_options(-fsanitize=${sanitizers} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${sanitizers})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Wrong about std::regex in instrumented code; the other presets keep the warning.
    target_compile_options(project_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  if("thread" IN_LIST SANITIZE)
    # The sanitizer sets the exit status in an exit handler.
    add_compile_definitions(QUENMOOR_THREAD_SANITIZER=1 QUENMOOR_EXIT_HANDLERS=1)
    # GCC warns that thread fences are not seen by the sanitizer; the code has none of its own.
    target_compile_options(project_options INTERFACE -Wno-tsan)
  endif()
endif()

if(COVERAGE)
  add_compile_options(--coverage)
  add_compile_definitions(QUENMOOR_EXIT_HANDLERS=1) # one writes the counters
  add_link_options(--coverage)
endif()
