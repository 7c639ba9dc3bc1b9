# The page half of the service: its certificate, its sessions, its https server and the page.
include(GNUInstallDirs)
# Where an installed program finds the page, from the folder of its executable.
file(RELATIVE_PATH installed_page ${CMAKE_INSTALL_FULL_BINDIR}
  ${CMAKE_INSTALL_FULL_DATADIR}/quenmoor-devservice/page)

add_library(devservice_page STATIC
  ${CMAKE_CURRENT_LIST_DIR}/certificate.cpp
  ${CMAKE_CURRENT_LIST_DIR}/page_server.cpp
  ${CMAKE_CURRENT_LIST_DIR}/session_store.cpp)
set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/page_server.cpp PROPERTY COMPILE_DEFINITIONS
  QUENMOOR_INSTALLED_PAGE="${installed_page}"
  QUENMOOR_SOURCE_PAGE="${CMAKE_CURRENT_LIST_DIR}/page")
target_link_libraries(devservice_page
  PUBLIC
    devservice_core                 # token_store.h
  PRIVATE
    OpenSSL::SSL OpenSSL::Crypto    # certificate.cpp, session_store.cpp
    PkgConfig::HTTPLIB              # page_server.cpp
    nlohmann_json::nlohmann_json    # page_server.cpp
    Threads::Threads)
