# Finds UDT 4 and defines UDT::UDT. Debian keeps the header in <udt/udt.h>, others in <udt.h>;
# the target's include path makes <udt.h> right on both.
find_path(UDT_INCLUDE_DIR udt.h PATH_SUFFIXES udt)
find_library(UDT_LIBRARY udt)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(UDT REQUIRED_VARS UDT_LIBRARY UDT_INCLUDE_DIR)

if(UDT_FOUND AND NOT TARGET UDT::UDT)
  add_library(UDT::UDT UNKNOWN IMPORTED)
  set_target_properties(UDT::UDT PROPERTIES
    IMPORTED_LOCATION ${UDT_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${UDT_INCLUDE_DIR})
endif()
mark_as_advanced(UDT_INCLUDE_DIR UDT_LIBRARY)
