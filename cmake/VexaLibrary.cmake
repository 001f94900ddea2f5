# One folder, one library, one target: vexa_add_library() is the only way a folder of ours
# becomes a library, so that warnings, header sets, tests and installation are said once.
include(CheckCXXCompilerFlag)
include(GNUInstallDirs)
include(GoogleTest)

# Warnings are ours alone: they do not travel to whoever links the installed libraries.
function(vexa_own_code target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                         -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual)
  # Reports name sources without their directory; nor should what we ship tell where it was built.
  target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # False alarms over the concatenation of strings, at -O3 only (GCC bug 105651).
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(VEXA_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  vexa_harden(${target})
endfunction()

# Programs in C are there to show and to test that ours is C, of 1999 at that.
function(vexa_own_c_code target)
  set_target_properties(${target} PROPERTIES C_STANDARD 99 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE -Wall -Wextra -pedantic)
  if(VEXA_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

function(vexa_own_fortran_code target)
  if(CMAKE_Fortran_COMPILER_ID STREQUAL GNU)
    target_compile_options(${target} PRIVATE -std=f2008 -Wall -Wextra -pedantic
                           -Wno-function-elimination)
    if(VEXA_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
endfunction()

# What Debian asks of its packages and more, for builds that optimise: the stack is watched, lengths
# are checked where the compiler knows them, addresses are drawn by lot, and tables of functions are
# read-only once a program runs.
function(vexa_harden target)
  if(NOT VEXA_HARDEN)
    return()
  endif()
  target_compile_options(${target} PRIVATE -Wformat -Wformat-security
                         $<$<NOT:$<BOOL:$<TARGET_PROPERTY:POSITION_INDEPENDENT_CODE>>>:-fPIE>
                         -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  foreach(flag -fstack-clash-protection -fcf-protection)    # not on every architecture
    string(MAKE_C_IDENTIFIER VEXA_HAS${flag} known)
    check_cxx_compiler_flag(${flag} ${known})
    if(${known})
      target_compile_options(${target} PRIVATE ${flag})
    endif()
  endforeach()
  target_link_options(${target} PRIVATE $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>
                      -Wl,-z,relro -Wl,-z,now)
endfunction()

# The code of a library can become part of a shared object, as a module for Python or Fortran is one.
# The compiler may still put its functions in line, as if nobody replaced them at run time.
function(vexa_for_plugins library)
  set_target_properties(${library} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(${library} PRIVATE -fno-semantic-interposition)
  endif()
  if(BUILD_SHARED_LIBS)
    set_target_properties(${library} PROPERTIES CXX_VISIBILITY_PRESET hidden)
  endif()
endfunction()

# A source that includes its own header first shows already that this compiles alone; the target
# all_verify_interface_header_sets tries the others.
function(vexa_add_headers library)
  cmake_parse_arguments(ARG "" "" "HEADERS;SOURCES" ${ARGN})
  file(RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR})
  set(includedFirst)
  foreach(source IN LISTS ARG_SOURCES)
    file(STRINGS ${source} first REGEX "^#include" LIMIT_COUNT 1)
    string(REGEX REPLACE "cpp$" "hpp" header ${source})
    if(header IN_LIST ARG_HEADERS AND "${first}" STREQUAL "#include \"${folder}/${header}\"")
      list(APPEND includedFirst ${header})
    endif()
  endforeach()
  if(includedFirst)
    list(REMOVE_ITEM ARG_HEADERS ${includedFirst})
  endif()
  target_sources(${library} PUBLIC
                 FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARG_HEADERS}
                 FILE_SET includedFirst TYPE HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${includedFirst})
  set_target_properties(${library} PROPERTIES INTERFACE_HEADER_SETS_TO_VERIFY HEADERS)
endfunction()

# vexa_add_library(<name> [REGISTERS] [OPTIONAL] SOURCES ... HEADERS ... [DEPENDS ...]
#                  [PRIVATE_DEPENDS ...] [TESTS ...] [TEST_DEPENDS ...])
#
# Makes the static library Vexa::<name> of the current folder and, from TESTS, the test program
# <name>Test, which links that library only (and what TEST_DEPENDS adds). What is linked here is all
# that the folder may include from: scripts/check-directions reads it. HEADERS are those that are
# installed: what a program includes, and what these include in turn. With REGISTERS the
# library is linked whole: a linker drops archive members that nobody refers to, and with them
# the objects that enter the folder's classes into the class registry. With OPTIONAL the library is
# installed as a component of its own, which users have to ask find_package(Vexa) for.
function(vexa_add_library name)
  cmake_parse_arguments(ARG "REGISTERS;OPTIONAL" ""
                        "SOURCES;HEADERS;DEPENDS;PRIVATE_DEPENDS;TESTS;TEST_DEPENDS" ${ARGN})
  set(library Vexa_${name})
  set(exported ${name})
  if(ARG_REGISTERS)
    set(library Vexa_${name}Archive)
    set(exported ${name}Archive)
  endif()
  add_library(${library} STATIC ${ARG_SOURCES})
  add_library(Vexa::${exported} ALIAS ${library})
  vexa_own_code(${library})
  target_compile_definitions(${library} PRIVATE VEXA_LIBRARY)    # Handlers.hpp tells programs from it
  vexa_for_plugins(${library})
  vexa_add_headers(${library} HEADERS ${ARG_HEADERS} SOURCES ${ARG_SOURCES})
  list(TRANSFORM ARG_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ OUTPUT_VARIABLE headers)
  set_property(GLOBAL APPEND PROPERTY VEXA_HEADERS ${headers})
  target_include_directories(${library} INTERFACE
                             $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/Vexa>)
  target_link_libraries(${library} PUBLIC ${ARG_DEPENDS} PRIVATE ${ARG_PRIVATE_DEPENDS})
  set_target_properties(${library} PROPERTIES EXPORT_NAME ${exported} OUTPUT_NAME Vexa${exported})
  set(component Development)
  set(export VexaTargets)
  if(ARG_OPTIONAL)
    set(component ${name})
    set(export Vexa${name}Targets)
    set_property(GLOBAL APPEND PROPERTY VEXA_OPTIONAL_LIBRARIES ${name})
  endif()
  install(TARGETS ${library} EXPORT ${export}
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component}
          FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Vexa COMPONENT ${component}
          FILE_SET includedFirst DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Vexa COMPONENT ${component})

  # For the link line of pkg-config. What is linked whole is a single word, so that nothing can be
  # sorted out of its brackets.
  set(flag -lVexa${exported})
  if(ARG_REGISTERS)
    set(flag -Wl,--push-state,--whole-archive,${flag},--pop-state)
  endif()
  if(NOT ARG_OPTIONAL)
    set_property(GLOBAL APPEND PROPERTY VEXA_LINK_FLAGS ${flag})
    set_property(GLOBAL APPEND PROPERTY VEXA_SHARED_PARTS ${library})
  endif()

  if(ARG_REGISTERS)
    add_library(Vexa_${name} INTERFACE)
    add_library(Vexa::${name} ALIAS Vexa_${name})
    # The include directories and the libraries below travel with the archive itself.
    target_link_libraries(Vexa_${name} INTERFACE
                          "$<LINK_LIBRARY:WHOLE_ARCHIVE,Vexa::${exported}>" ${ARG_DEPENDS})
    set_target_properties(Vexa_${name} PROPERTIES EXPORT_NAME ${name})
    install(TARGETS Vexa_${name} EXPORT ${export})
  endif()

  if(VEXA_BUILD_TESTS AND ARG_TESTS)
    vexa_add_test(${name}Test SOURCES ${ARG_TESTS} DEPENDS Vexa::${name} ${ARG_TEST_DEPENDS})
  endif()
endfunction()

# vexa_add_forwarding(<name> HEADERS ... DEPENDS ...): Vexa::<name> is another name of what it depends
# on, with headers that include others, for programs that know both from before they moved.
function(vexa_add_forwarding name)
  cmake_parse_arguments(ARG "" "" "HEADERS;DEPENDS" ${ARGN})
  add_library(Vexa_${name} INTERFACE)
  add_library(Vexa::${name} ALIAS Vexa_${name})
  target_sources(Vexa_${name} INTERFACE FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR}
                                        FILES ${ARG_HEADERS})
  target_link_libraries(Vexa_${name} INTERFACE ${ARG_DEPENDS})
  set_target_properties(Vexa_${name} PROPERTIES EXPORT_NAME ${name})
  install(TARGETS Vexa_${name} EXPORT VexaTargets
          FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Vexa COMPONENT Development)
endfunction()

function(vexa_test_code target)
  vexa_own_code(${target})
  # Programs can share what was compiled once only if all of them are compiled alike.
  set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  # Half of a build would go into optimising the templates of the tests, which do not run for long.
  target_compile_options(${target} PRIVATE $<$<NOT:$<CONFIG:Release>>:-O0>)
  target_link_libraries(${target} PRIVATE GTest::gmock GTest::gtest_main)
endfunction()

# vexa_add_test(<program> SOURCES ... DEPENDS ...): a GoogleTest program and its tests in ctest.
# Death tests read the report of a process that ended; a backtrace in it is only noise.
function(vexa_add_test program)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  # GoogleMock's headers take longer to read than most tests: all programs share one reading.
  if(NOT TARGET VexaTestHeaders)
    file(WRITE ${PROJECT_BINARY_DIR}/VexaTestHeaders.cpp "")
    add_library(VexaTestHeaders OBJECT ${PROJECT_BINARY_DIR}/VexaTestHeaders.cpp)
    vexa_test_code(VexaTestHeaders)
    target_precompile_headers(VexaTestHeaders PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
  endif()
  add_executable(${program} ${ARG_SOURCES})
  vexa_test_code(${program})
  target_precompile_headers(${program} REUSE_FROM VexaTestHeaders)
  target_link_libraries(${program} PRIVATE ${ARG_DEPENDS})
  gtest_discover_tests(${program} DISCOVERY_TIMEOUT 60
                       PROPERTIES ENVIRONMENT "VEXA_NO_BACKTRACE=1" TIMEOUT 300)
endfunction()
