# The macOS application bundle: Info.plist, icon, and Qt with its page engine copied into it. cpack
# packs the bundle into a disk image. Included by packaging.cmake on macOS only.
#
# The bundle is not signed. Before distribution it needs codesign and notarisation with the owner's
# identity; the page engine's helper process then needs the entitlement
# com.apple.security.cs.allow-jit.

set_target_properties(quenmoor-upload PROPERTIES
  MACOSX_BUNDLE ON
  MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_LIST_DIR}/Info.plist.in)

# The icon is drawn from the same SVG as on other systems. Without the tools the bundle is built
# without an icon of its own.
find_program(RSVG_CONVERT rsvg-convert)
find_program(ICNS_WRITER NAMES iconutil png2icns)
if(RSVG_CONVERT AND ICNS_WRITER)
  set(icon ${PROJECT_BINARY_DIR}/com.quenmoor.Upload.icns)
  set(drawing ${PROJECT_SOURCE_DIR}/packaging/com.quenmoor.Upload.svg)
  set(writer ${CMAKE_CURRENT_LIST_DIR}/icon.cmake)
  add_custom_command(OUTPUT ${icon} DEPENDS ${drawing} ${writer} VERBATIM
    COMMAND ${CMAKE_COMMAND} -D RSVG_CONVERT=${RSVG_CONVERT} -D ICNS_WRITER=${ICNS_WRITER}
      -D DRAWING=${drawing} -D ICON=${icon} -P ${writer})
  add_custom_target(app_icon DEPENDS ${icon})
  add_dependencies(quenmoor-upload app_icon)
  target_sources(quenmoor-upload PRIVATE ${icon})
  set_source_files_properties(${icon} TARGET_DIRECTORY quenmoor-upload PROPERTIES
    GENERATED ON MACOSX_PACKAGE_LOCATION Resources)
  set_target_properties(quenmoor-upload PROPERTIES MACOSX_BUNDLE_ICON_FILE com.quenmoor.Upload)
else()
  message(STATUS "The bundle gets no icon: rsvg-convert, or iconutil or png2icns, is missing")
endif()

qt_generate_deploy_app_script(TARGET quenmoor-upload FILENAME_VARIABLE deploy_qt)
install(SCRIPT ${deploy_qt} COMPONENT upload)
