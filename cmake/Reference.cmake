# The reference of the library, made by Doxygen where it is at hand from the installed headers and the
# pages for programmers. The headers are the manual: cmake/Doxyfile.in adds nothing to them.
install(FILES docs/library.md docs/c.md docs/design.md docs/file-format.md docs/python.md
        DESTINATION ${VEXA_LIBRARY_DOCDIR} COMPONENT Development)

find_program(VEXA_DOXYGEN doxygen)
mark_as_advanced(VEXA_DOXYGEN)
# A build with sanitizers is installed nowhere.
if(NOT VEXA_DOXYGEN OR NOT PROJECT_IS_TOP_LEVEL OR CMAKE_CXX_FLAGS MATCHES "-fsanitize")
  return()
endif()

set(VEXA_REFERENCE ${PROJECT_BINARY_DIR}/reference)
get_property(headers GLOBAL PROPERTY VEXA_HEADERS)
set(pages ${headers})
foreach(page library c design file-format python)
  list(APPEND pages ${PROJECT_SOURCE_DIR}/docs/${page}.md)
endforeach()
list(TRANSFORM pages REPLACE ".+" "\"\\0\"" OUTPUT_VARIABLE VEXA_REFERENCE_INPUT)
list(JOIN VEXA_REFERENCE_INPUT " " VEXA_REFERENCE_INPUT)
# Another Doxygen than ours may warn of other things, which must not break a user's build.
set(VEXA_REFERENCE_FAILS NO)
if(VEXA_WARNINGS_AS_ERRORS)
  set(VEXA_REFERENCE_FAILS FAIL_ON_WARNINGS)
endif()
configure_file(cmake/Doxyfile.in ${VEXA_REFERENCE}/Doxyfile @ONLY)
add_custom_command(OUTPUT ${VEXA_REFERENCE}/made
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${VEXA_REFERENCE}/html
  COMMAND ${VEXA_DOXYGEN} ${VEXA_REFERENCE}/Doxyfile
  COMMAND ${CMAKE_COMMAND} -E touch ${VEXA_REFERENCE}/made
  DEPENDS ${pages} ${VEXA_REFERENCE}/Doxyfile
  COMMENT "Making the reference of the library" VERBATIM)
add_custom_target(Reference ALL DEPENDS ${VEXA_REFERENCE}/made)
# OPTIONAL: whoever builds the programs alone can install them.
install(DIRECTORY ${VEXA_REFERENCE}/html DESTINATION ${VEXA_LIBRARY_DOCDIR} COMPONENT Development
        OPTIONAL)
