# `cpack` makes the Debian packages: kelmor with the programs, their man pages, completions, samples and
# documents, libvexa-dev with what a simulation needs to write such files, libvexa0 with the shared
# library if there is one, libvexa-mpi-dev with what a simulation needs besides under MPI, if that was
# found, libvexa-fortran-dev with what it needs in Fortran, and python3-vexa with all that Python needs.
# `cpack -G TGZ` makes one archive of it all.
# scripts/package builds for that; any other build can be packed as well.
set(VEXA_PACKAGE_CONTACT "Vexa maintainers <maintainers@vexa.invalid>" CACHE STRING
    "Who looks after the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kelmor)
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT ${VEXA_PACKAGE_CONTACT})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
get_property(packaged GLOBAL PROPERTY VEXA_PACKAGED)
set(CPACK_COMPONENTS_ALL Runtime Development ${VEXA_OPTIONAL_LIBRARIES} ${packaged})
if(BUILD_SHARED_LIBS)
  list(APPEND CPACK_COMPONENTS_ALL Shared)
endif()
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/DebianFinish.cmake)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/PackageGenerator.cmake)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kelmor)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION science)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "python3:any")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "bash-completion")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"join the HDF5 files of a simulation's segments
Kelmor joins the HDF5 files that the segments of a simulation wrote into one
file of the same layout, and removes the time steps that a restarted segment
repeats. KelmorInfo looks at such files, plans a join and checks one;
kelmor-run makes a join safe to schedule.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvexa-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(needed libhdf5-dev libmuparser-dev zlib1g-dev)
if(HDF5_IS_PARALLEL)
  list(TRANSFORM needed REPLACE "libhdf5" "libhdf5${hdf5_flavour}")
endif()
if(VEXA_WITH_LIBDEFLATE)
  list(APPEND needed libdeflate-dev)
endif()
if(BUILD_SHARED_LIBS)
  list(PREPEND needed "libvexa${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
endif()
list(JOIN needed ", " CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"store through which simulations write HDF5 files
Vexa keeps tables, sets of coefficients, tensor series, texts and version
records in HDF5 files, which Kelmor joins. This package has its static
libraries, its headers with their reference, an example, and what CMake and
pkg-config need to find them.")

set(CPACK_DEBIAN_SHARED_PACKAGE_NAME libvexa${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_SHARED_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_SHARED_PACKAGE_SHLIBDEPS ON)
# Under 1.0, a program runs with the very version that it was linked with.
set(control ${PROJECT_BINARY_DIR}/debian)
file(WRITE ${control}/shlibs "libvexa ${PROJECT_VERSION_MAJOR} ${CPACK_DEBIAN_SHARED_PACKAGE_NAME} (= ${PROJECT_VERSION})\n")
file(WRITE ${control}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_SHARED_PACKAGE_CONTROL_EXTRA ${control}/shlibs ${control}/triggers)
set(CPACK_COMPONENT_SHARED_DESCRIPTION
"store through which simulations write HDF5 files, shared library
Vexa keeps tables, sets of coefficients, tensor series, texts and version
records in HDF5 files, which Kelmor joins. This package has the library that
programs load which were linked with it.")

set(CPACK_DEBIAN_PARALLEL_PACKAGE_NAME libvexa-mpi-dev)
set(CPACK_DEBIAN_PARALLEL_PACKAGE_SECTION libdevel)
# The library serves one MPI alone, the one that it was built with.
set(mpi libopenmpi-dev)
if(MPI_CXX_HEADER_DIR MATCHES mpich)
  set(mpi libmpich-dev)
endif()
set(CPACK_DEBIAN_PARALLEL_PACKAGE_DEPENDS "libvexa-dev (= ${PROJECT_VERSION}), ${mpi}")
set(CPACK_COMPONENT_PARALLEL_DESCRIPTION
"store through which simulations write HDF5 files, under MPI
Vexa keeps tables, sets of coefficients, tensor series, texts and version
records in HDF5 files, which Kelmor joins. This package has the library
through which the processes of an MPI job write what they hold when one of
them fails.")

set(CPACK_DEBIAN_FORTRAN_PACKAGE_NAME libvexa-fortran-dev)
set(CPACK_DEBIAN_FORTRAN_PACKAGE_SECTION libdevel)
# A module file is read by the compiler that wrote it, and by few of its other versions.
set(CPACK_DEBIAN_FORTRAN_PACKAGE_DEPENDS "libvexa-dev (= ${PROJECT_VERSION}), gfortran")
set(CPACK_COMPONENT_FORTRAN_DESCRIPTION
"store through which simulations write HDF5 files, for Fortran
Vexa keeps tables, sets of coefficients, tensor series, texts and version
records in HDF5 files, which Kelmor joins. This package has the module
through which programs in Fortran 2008 write them.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vexa)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any, python3-h5py, python3-numpy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "kelmor, python3-pandas, python3-xarray")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION
"files of simulations for Python: written, and read across segments
Vexa keeps tables, sets of coefficients, tensor series, texts and version
records in HDF5 files, which Kelmor joins. This package writes them from
NumPy's arrays, and reads them as frames and arrays, of one file or of all
segments of a run as if they were joined.")

include(CPack)
