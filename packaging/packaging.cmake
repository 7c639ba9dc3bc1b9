# What a desktop needs to know of the window. Included by the root when BUILD_WINDOW is on.
include(GNUInstallDirs)

install(TARGETS quenmoor-upload RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
if(NOT APPLE)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.desktop
    DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.metainfo.xml
    DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/com.quenmoor.Upload.svg
    DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
endif()
