# vexa_find(<package> <what to install> ...): find_package(), whose further arguments these are, for
# what the build cannot do without. What is missing is said in a line.
macro(vexa_find package what)
  find_package(${package} ${ARGN} QUIET)
  if(NOT ${package}_FOUND)
    set(found)
    if(${package}_VERSION)
      set(found " (but ${${package}_VERSION} was)")
    endif()
    message(FATAL_ERROR "${package} was not found${found}: install ${what}")
  endif()
endmacro()
