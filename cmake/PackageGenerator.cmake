# Read by cpack before each of its generators. What Debian wants of a package is for its packages only:
# an archive (cpack -G TGZ) holds what `cmake --install` installs, for any folder that it is unpacked in.
if(NOT CPACK_GENERATOR STREQUAL DEB)
  set(CPACK_PRE_BUILD_SCRIPTS "")
  set(CPACK_PACKAGING_INSTALL_PREFIX /)
endif()
