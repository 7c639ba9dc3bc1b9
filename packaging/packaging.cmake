# What is installed, and the packages that cpack makes. Each program is a component and a Debian
# package of its own, so that a machine without a screen gets quenmoor-put without Qt. Included last
# by the root.
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

foreach(component put devservice)
  set(program quenmoor-${component})
  set(completions ${CMAKE_CURRENT_LIST_DIR}/completions)
  install(FILES ${completions}/${program}.bash COMPONENT ${component} RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${completions}/_${program} COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
  install(FILES ${completions}/${program}.fish COMPONENT ${component}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
endforeach()

# devservice/CMakeLists.txt gives the program the path to this folder.
install(DIRECTORY ${page_folder} COMPONENT devservice
  DESTINATION ${CMAKE_INSTALL_DATADIR}/quenmoor-devservice)
if(NOT APPLE)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/systemd/quenmoor-devservice.service COMPONENT devservice
    DESTINATION lib/systemd/user)
endif()

if(BUILD_WINDOW AND APPLE)
  include(${CMAKE_CURRENT_LIST_DIR}/macos/bundle.cmake)
elseif(BUILD_WINDOW)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.desktop COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  # The session bus starts the window with it. It finds the program below any prefix in the PATH.
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.service COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.metainfo.xml COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.svg COMPONENT upload
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()

set(CPACK_PACKAGE_NAME quenmoor-upload)
set(CPACK_PACKAGE_VENDOR Quenmoor)
set(CPACK_PACKAGE_CONTACT "Quenmoor <upload@quenmoor.com>")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_GENERATOR TGZ DEB)
if(APPLE)
  # The disk image holds the window alone; the other two programs come with cmake --install.
  set(CPACK_GENERATOR DragNDrop)
  set(CPACK_COMPONENTS_ALL upload)
  set(CPACK_DMG_VOLUME_NAME "Quenmoor Upload")
endif()

# The text below the first line of a package's description.
set(CPACK_COMPONENT_UPLOAD_DESCRIPTION
"The window: drop files on it, confirm each file on the page of the service, and
watch the progress. An interrupted upload resumes automatically.")
set(CPACK_COMPONENT_PUT_DESCRIPTION
"The command line, for scripts, render farms and machines without a screen.
An interrupted upload resumes automatically.")
set(CPACK_COMPONENT_DEVSERVICE_DESCRIPTION
"A small transfer service for one machine, to try clients with. It stores what
it receives, serves an upload page, and injects faults on request.")

set(debian ${CMAKE_CURRENT_LIST_DIR}/debian)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
foreach(component IN LISTS components)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME quenmoor-${component})
endforeach()
set(CPACK_DEBIAN_UPLOAD_PACKAGE_RECOMMENDS libqt6svg6)      # draws the icon
set(CPACK_DEBIAN_DEVSERVICE_PACKAGE_SUGGESTS libnss3-tools) # certutil, to trust its page
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/debian)
foreach(script postinst prerm triggers)
  configure_file(${debian}/upload.${script} ${PROJECT_BINARY_DIR}/debian/${script} COPYONLY)
  list(APPEND CPACK_DEBIAN_UPLOAD_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/${script})
endforeach()
set(CPACK_QUENMOOR_DEBIAN_FOLDER ${debian}) # for the script below
set(CPACK_PRE_BUILD_SCRIPTS ${debian}/stage.cmake)
include(CPack)
