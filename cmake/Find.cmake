# vexa_find_generator(): the program that the presets build with.
function(vexa_find_generator)
  if(CMAKE_GENERATOR MATCHES Ninja)
    find_program(CMAKE_MAKE_PROGRAM NAMES ninja-build ninja samu)
    if(NOT CMAKE_MAKE_PROGRAM)
      message(FATAL_ERROR "Ninja was not found: install ninja-build, or configure with -G \"Unix Makefiles\"")
    endif()
  endif()
endfunction()

# vexa_not_found(<package> <what to install>): says in a line what the build cannot do without.
function(vexa_not_found package what)
  set(found)
  if(${package}_VERSION)
    set(found " (but ${${package}_VERSION} was)")
  endif()
  message(FATAL_ERROR "${package} was not found${found}: install ${what}")
endfunction()

# vexa_find(<package> <what to install> ...): find_package(), whose further arguments these are, for
# such a package.
macro(vexa_find package what)
  find_package(${package} ${ARGN} QUIET)
  if(NOT ${package}_FOUND)
    vexa_not_found(${package} "${what}")
  endif()
endmacro()

# vexa_find_at_run_time(<library> ...): where one of these lies in a folder that the system does not
# search, what is installed looks there first. A folder that LIBRARY_PATH names at build time is no
# folder of the system.
function(vexa_find_at_run_time)
  foreach(library IN LISTS ARGN)
    if(TARGET ${library})    # an HDF5 that brings a CMake package is known by its targets
      get_target_property(library ${library} LOCATION)
    endif()
    file(REAL_PATH ${library} file)    # what Debian has in a folder per flavour are links
    get_filename_component(folder ${file} DIRECTORY)
    if(file MATCHES "[.]so[.0-9]*$" AND
       NOT folder MATCHES "^(/usr)?/lib(32|64)?(/${CMAKE_LIBRARY_ARCHITECTURE})?$")
      list(APPEND CMAKE_INSTALL_RPATH ${folder})
      set(CMAKE_INSTALL_RPATH_USE_LINK_PATH ON PARENT_SCOPE)
    endif()
  endforeach()
  list(REMOVE_DUPLICATES CMAKE_INSTALL_RPATH)
  set(CMAKE_INSTALL_RPATH ${CMAKE_INSTALL_RPATH} PARENT_SCOPE)
endfunction()
