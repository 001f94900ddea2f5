# Run by cpack between installing into its own folder and packing it: what Debian wants of a package
# and an installation elsewhere does not.
set(contact "${CPACK_PACKAGE_CONTACT}")
set(license ${CMAKE_CURRENT_LIST_DIR}/../LICENSE)

function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  set(root ${CPACK_TEMPORARY_DIRECTORY}/${component}/usr)
  set(doc ${root}/share/doc/${package})
  file(MAKE_DIRECTORY ${doc})

  file(GLOB pages ${root}/share/man/man*/*)
  foreach(page ${pages})
    run(gzip -9n ${page})
  endforeach()

  file(REMOVE ${doc}/LICENSE)
  configure_file(${license} ${doc}/copyright COPYONLY NO_SOURCE_PERMISSIONS)
  # Reproducible where SOURCE_DATE_EPOCH is set.
  string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  file(WRITE ${doc}/changelog
       "kelmor (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
       "  * Version ${CPACK_PACKAGE_VERSION}; CHANGELOG.md of kelmor says what is new.\n\n"
       " -- ${contact}  ${date}\n")
  run(gzip -9n ${doc}/changelog)

  file(GLOB libraries ${root}/lib/*.a ${root}/lib/*/*.a)
  foreach(library ${libraries})
    run(strip --strip-debug --remove-section=.comment --enable-deterministic-archives ${library})
  endforeach()

  file(GLOB programs ${root}/bin/* ${root}/lib/kelmor/examples/* ${root}/lib/*/*.so.*.*.*
       ${root}/lib/python3/dist-packages/*/*.so)
  foreach(program ${programs})
    file(READ ${program} start LIMIT 4 HEX)
    if(start STREQUAL "7f454c46")
      run(strip --remove-section=.comment --remove-section=.note ${program})
    endif()
  endforeach()

  # What lintian finds and we explain, and what lists the documents of the system.
  if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/lintian/${package})
    configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian/${package}
                   ${root}/share/lintian/overrides/${package} COPYONLY NO_SOURCE_PERMISSIONS)
  endif()
  if(EXISTS ${doc}/html)
    configure_file(${CMAKE_CURRENT_LIST_DIR}/${package}.doc-base
                   ${root}/share/doc-base/${package} COPYONLY NO_SOURCE_PERMISSIONS)
  endif()

  # Shells and scripts of the system look in places of their own.
  if(EXISTS ${root}/share/zsh/site-functions)
    file(RENAME ${root}/share/zsh/site-functions ${root}/share/zsh/vendor-completions)
  endif()
  file(GLOB programs ${root}/bin/*)
  foreach(program ${programs})
    file(READ ${program} start LIMIT 22)
    if(start STREQUAL "#!/usr/bin/env python3")
      run(sed -i "1s|.*|#!/usr/bin/python3|" ${program})
    endif()
  endforeach()
endforeach()
