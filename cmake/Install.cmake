# What `cmake --install` puts in place beyond the programs and the libraries, which install
# themselves: man pages and completions, the documents, the CMake package that find_package(Vexa)
# loads, and the same for pkg-config. The component Runtime is for those who join files,
# Development for those who write them, Parallel for those who do so under MPI, Fortran for those who do
# so in Fortran, Python for those who do either in Python.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

foreach(program Kelmor KelmorInfo kelmor-run)
  install(FILES man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Runtime)
  install(FILES completions/${program}.bash RENAME ${program}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Runtime)
  install(FILES completions/_${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
          COMPONENT Runtime)
endforeach()
install(FILES README.md CHANGELOG.md LICENSE DESTINATION ${VEXA_DOCDIR} COMPONENT Runtime)
install(FILES docs/c.md docs/cluster.md docs/design.md docs/file-format.md docs/install.md docs/json.md
              docs/kelmor.schema.json docs/library.md docs/plan.svg docs/python.md
        DESTINATION ${VEXA_DOCDIR}/docs COMPONENT Runtime)
# For `module load kelmor`, after `module use <prefix>/share/modulefiles`.
set(modules ${CMAKE_INSTALL_DATADIR}/modulefiles/kelmor)
string(REGEX REPLACE "[^/]+" ".." VEXA_PREFIX_FROM_MODULES ${modules})
configure_file(cmake/modulefile.in ${PROJECT_BINARY_DIR}/modulefile @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/modulefile DESTINATION ${modules} RENAME ${PROJECT_VERSION}
        COMPONENT Runtime)
include(cmake/Reference.cmake)

set(VEXA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Vexa)
get_property(VEXA_WITH_LIBDEFLATE GLOBAL PROPERTY VEXA_WITH_LIBDEFLATE)
if(NOT VEXA_WITH_LIBDEFLATE)
  set(VEXA_WITH_LIBDEFLATE OFF)
endif()
configure_package_config_file(cmake/VexaConfig.cmake.in ${PROJECT_BINARY_DIR}/VexaConfig.cmake
                              INSTALL_DESTINATION ${VEXA_PACKAGE_DIR}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VexaConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexaConfig.cmake ${PROJECT_BINARY_DIR}/VexaConfigVersion.cmake
        DESTINATION ${VEXA_PACKAGE_DIR} COMPONENT Development)
if(VEXA_WITH_LIBDEFLATE)
  install(FILES cmake/FindLibdeflate.cmake DESTINATION ${VEXA_PACKAGE_DIR} COMPONENT Development)
endif()
install(EXPORT VexaTargets NAMESPACE Vexa:: DESTINATION ${VEXA_PACKAGE_DIR}
        COMPONENT Development)
get_property(VEXA_OPTIONAL_LIBRARIES GLOBAL PROPERTY VEXA_OPTIONAL_LIBRARIES)
foreach(name IN LISTS VEXA_OPTIONAL_LIBRARIES)
  install(EXPORT Vexa${name}Targets NAMESPACE Vexa:: DESTINATION ${VEXA_PACKAGE_DIR}
          COMPONENT ${name})
endforeach()

# Libraries were made from the bottom up, and are linked from the top down. The one that stands on
# MPI is not among them: its users need the compiler that MPI wraps.
get_property(flags GLOBAL PROPERTY VEXA_LINK_FLAGS)
list(REVERSE flags)
list(JOIN flags " " VEXA_LINK_FLAGS)
set(VEXA_REQUIRES muparser zlib)
if(VEXA_WITH_LIBDEFLATE)
  list(APPEND VEXA_REQUIRES libdeflate)
endif()
# Elsewhere than in Debian there is the plain name, which means any of its builds there.
list(PREPEND VEXA_REQUIRES hdf5${hdf5_flavour})
string(REGEX REPLACE "[^/]+" ".." VEXA_PREFIX_FROM_PKGCONFIG ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# vexa_install_pc(<name> <library that is required> ...): uses VEXA_PC_LIBS.
function(vexa_install_pc name)
  list(JOIN ARGN ", " VEXA_PC_REQUIRES)
  string(PREPEND VEXA_PC_REQUIRES "Requires: ")
  configure_file(cmake/vexa.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
          COMPONENT Development)
endfunction()

# Whoever links the archives always needs what they need; of what libvexa.so needs, programs include
# the headers of HDF5 alone.
set(static vexa)
if(BUILD_SHARED_LIBS)
  list(GET VEXA_REQUIRES 0 hdf5)
  set(VEXA_PC_LIBS -lvexa)
  vexa_install_pc(vexa ${hdf5})
  set(static vexa-static)
endif()
set(VEXA_PC_LIBS "${VEXA_LINK_FLAGS} -pthread -ldl")
vexa_install_pc(${static} ${VEXA_REQUIRES})
