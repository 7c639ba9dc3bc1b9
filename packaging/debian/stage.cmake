# Adds what only Debian packages contain to the installed files, before cpack packs them: changelog,
# copyright, AppArmor profile, compressed manual pages, and the place where Debian's zsh looks for
# completions. Run by cpack for each of its generators, with its variables.
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()

set(source ${CPACK_QUENMOOR_DEBIAN_FOLDER})
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  set(share ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr/share)
  if(NOT EXISTS ${share})
    message(FATAL_ERROR "${share} is missing: cpack does not stage the packages there")
  endif()
  set(doc ${share}/doc/quenmoor-${component})
  file(MAKE_DIRECTORY ${doc})
  file(COPY ${source}/copyright DESTINATION ${doc})
  file(COPY ${source}/changelog DESTINATION ${doc})
  file(GLOB pages ${share}/man/man*/*.[1-8])
  # Without a time stamp the same sources give the same package.
  execute_process(COMMAND gzip -9nf ${doc}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
  if(EXISTS ${share}/zsh/site-functions)
    file(RENAME ${share}/zsh/site-functions ${share}/zsh/vendor-completions)
  endif()
  if(component STREQUAL "upload")
    file(COPY ${source}/apparmor-profile DESTINATION ${share}/quenmoor-upload)
  endif()
endforeach()
