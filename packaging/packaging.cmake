# What is installed, and the packages. Each program is a component and a Debian package of its own,
# so that a machine without a screen gets quenmoor-put without Qt. Included last by the root.
include(GNUInstallDirs)

set(page_folder ${PROJECT_SOURCE_DIR}/devservice/page)
set(components put devservice)
if(BUILD_WINDOW)
  list(PREPEND components upload)
endif()

foreach(component IN LISTS components)
  install(TARGETS quenmoor-${component} COMPONENT ${component}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    BUNDLE DESTINATION .)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/man/quenmoor-${component}.1 COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endforeach()

# The program looks for it here: see devservice/CMakeLists.txt.
install(DIRECTORY ${page_folder} COMPONENT devservice
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quenmoor-devservice)

if(BUILD_WINDOW AND APPLE)
  set_target_properties(quenmoor-upload PROPERTIES
    MACOSX_BUNDLE ON
    MACOSX_BUNDLE_INFO_PLIST ${CMAKE_CURRENT_LIST_DIR}/Info.plist.in)
elseif(BUILD_WINDOW)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.desktop COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.metainfo.xml COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.svg COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()

set(CPACK_PACKAGE_NAME quenmoor-upload)
set(CPACK_PACKAGE_VENDOR Quenmoor)
set(CPACK_PACKAGE_CONTACT "Quenmoor <upload@quenmoor.com>")
set(CPACK_GENERATOR TGZ)
if(NOT APPLE)
  list(APPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${components})
# Each stands below the project's own description, which is the first line of all.
set(CPACK_COMPONENT_UPLOAD_DESCRIPTION
"The window: drop files on it, confirm each on the page of the service, and
watch them go. An upload that breaks goes on where the service has it.")
set(CPACK_COMPONENT_PUT_DESCRIPTION
"The command line, for scripts, render farms and machines without a screen.
An upload that breaks goes on where the service has it.")
set(CPACK_COMPONENT_DEVSERVICE_DESCRIPTION
"A small transfer service on one machine, to try clients on. It stores what it
receives, serves an upload page, and misbehaves on request.")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
foreach(component IN LISTS components)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME quenmoor-${component})
endforeach()
set(CPACK_DEBIAN_UPLOAD_PACKAGE_RECOMMENDS libqt6svg6)      # draws the icon
set(CPACK_DEBIAN_DEVSERVICE_PACKAGE_SUGGESTS libnss3-tools) # certutil, to trust its page
include(CPack)
