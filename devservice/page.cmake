# The page half of the service: its certificate, its sessions, its https server and the page.
add_library(devservice_page STATIC
  ${CMAKE_CURRENT_LIST_DIR}/certificate.cpp
  ${CMAKE_CURRENT_LIST_DIR}/page_server.cpp
  ${CMAKE_CURRENT_LIST_DIR}/session_store.cpp)
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/page_server.cpp PROPERTIES
  COMPILE_DEFINITIONS QUENMOOR_PAGE_FOLDER="${CMAKE_CURRENT_LIST_DIR}/page")
target_link_libraries(devservice_page
  PUBLIC
    devservice_core                 # token_store.h
  PRIVATE
    OpenSSL::SSL OpenSSL::Crypto    # certificate.cpp, session_store.cpp
    PkgConfig::HTTPLIB              # page_server.cpp
    nlohmann_json::nlohmann_json    # page_server.cpp
    Threads::Threads)
