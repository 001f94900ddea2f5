# What `cmake --install` puts in place beyond the programs and the libraries, which install
# themselves: man page and completions, the documents, and the CMake package that
# find_package(Vexa) loads.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

foreach(program Kelmor KelmorInfo)
  if(TARGET ${program})
    install(FILES man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Runtime)
    install(FILES completions/${program}.bash RENAME ${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Runtime)
    install(FILES completions/_${program} DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions
            COMPONENT Runtime)
  endif()
endforeach()
install(FILES README.md CHANGELOG.md LICENSE docs/design.md docs/file-format.md
        DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(VEXA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Vexa)
set(VEXA_WITH_MPI OFF)
if(TARGET Vexa_Parallel AND MPI_CXX_FOUND)
  set(VEXA_WITH_MPI ON)
endif()
configure_package_config_file(cmake/VexaConfig.cmake.in ${PROJECT_BINARY_DIR}/VexaConfig.cmake
                              INSTALL_DESTINATION ${VEXA_PACKAGE_DIR}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VexaConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexaConfig.cmake ${PROJECT_BINARY_DIR}/VexaConfigVersion.cmake
        DESTINATION ${VEXA_PACKAGE_DIR} COMPONENT Development)
install(EXPORT VexaTargets NAMESPACE Vexa:: DESTINATION ${VEXA_PACKAGE_DIR}
        COMPONENT Development)
