# uploader_qt_test(ui/widgets_test.cpp ui): adds a Qt Test program that runs without a display as the
# test ui.widgets. The source contains its class and includes its .moc file at the end.
function(uploader_qt_test source)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "")
  get_filename_component(folder ${source} DIRECTORY)
  get_filename_component(unit ${source} NAME_WE)
  string(REGEX REPLACE "_test$" "" unit ${unit})
  string(REPLACE "/" "." folder ${folder})
  set(target ${folder}.${unit}_test)
  add_executable(${target} ${source})
  set_target_properties(${target} PROPERTIES AUTOMOC ON)
  target_link_libraries(${target} PRIVATE project_options ${arg_UNPARSED_ARGUMENTS} Qt6::Test)
  add_test(NAME ${folder}.${unit} COMMAND ${target})
  set(timeout 120)
  if(arg_TIMEOUT)
    set(timeout ${arg_TIMEOUT})
  endif()
  # Independent of the user's desktop configuration.
  set_tests_properties(${folder}.${unit} PROPERTIES
    TIMEOUT ${timeout}
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_STYLE_OVERRIDE=fusion;QT_LOGGING_RULES=qt.qpa.*=false;DBUS_SESSION_BUS_ADDRESS=disabled:;DBUS_SYSTEM_BUS_ADDRESS=disabled:")
endfunction()
