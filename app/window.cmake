# The window. Included by this folder's CMakeLists.txt when BUILD_WINDOW is on.
configure_file(window_settings.h.in ${CMAKE_CURRENT_BINARY_DIR}/generated/app/window_settings.h)

# All of the program but its composition, for the tests.
add_library(window_app STATIC end_process.cpp window_start.cpp)
set_target_properties(window_app PROPERTIES AUTOMOC ON)
target_include_directories(window_app PUBLIC ${CMAKE_CURRENT_BINARY_DIR}/generated)
target_link_libraries(window_app PUBLIC ui)
if(APPLE)
  target_link_libraries(window_app PRIVATE "-framework CoreFoundation") # the bundle's version
endif()

add_executable(quenmoor-upload main.cpp)
target_link_libraries(quenmoor-upload PRIVATE window_app ui_web)
set_target_properties(quenmoor-upload PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
