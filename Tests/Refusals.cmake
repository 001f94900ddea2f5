# What cannot be built with is refused by one error, which says what is wrong and what to do. Systems that
# lack it are stood in for by modules that come before those of CMake, and by a PATH that leads nowhere.
#
#   cmake -DSOURCES=<ours> -DWORK=<folder> -DGENERATOR=<its> -DCOMPILER=<its> -P Refusals.cmake

# expect(<what the error says; nothing, if there is none> <argument of cmake> ...)
function(expect text)
  execute_process(COMMAND ${CMAKE_COMMAND} ${ARGN} OUTPUT_QUIET ERROR_VARIABLE error)
  string(REGEX REPLACE "[ \n]+" " " error "${error}")
  string(REGEX MATCHALL "CMake Error|CMake Warning" reports "${error}")
  if(text STREQUAL "" AND NOT error STREQUAL "" OR
     NOT text STREQUAL "" AND NOT (error MATCHES "${text}" AND reports STREQUAL "CMake Error"))
    message(SEND_ERROR "'${text}' was expected of cmake ${ARGN}, which said: ${error}")
  endif()
endfunction()

foreach(case "GNU:10.5:8:g[+][+] 11.*name another by" "Clang:15.0.7:8:clang 16.*name another by" "GNU:11.1:8:"
             "Clang:16.0:8:" "GNU:12.2:4:64 bits")
  string(REGEX MATCH "(.*):(.*):(.*):(.*)" matched ${case})
  expect("${CMAKE_MATCH_4}" -DCMAKE_CXX_COMPILER_ID=${CMAKE_MATCH_1} -DCMAKE_CXX_COMPILER_VERSION=${CMAKE_MATCH_2}
         -DCMAKE_SIZEOF_VOID_P=${CMAKE_MATCH_3} -P ${SOURCES}/cmake/Supported.cmake)
endforeach()

file(REMOVE_RECURSE ${WORK})
expect("install ninja-build" -E env PATH=/nowhere ${CMAKE_COMMAND} -S ${SOURCES} -B ${WORK}/ninja -G Ninja)
file(WRITE ${WORK}/modules/FindHDF5.cmake
     "include(FindPackageHandleStandardArgs)\nset(HDF5_VERSION \${HDF5})\n"
     "find_package_handle_standard_args(HDF5 REQUIRED_VARS CMAKE_VERSION VERSION_VAR HDF5_VERSION)\n")
file(WRITE ${WORK}/modules/FindGTest.cmake "set(GTest_FOUND TRUE)\n")
set(configure -G "${GENERATOR}" -S ${SOURCES} -B "${WORK}/a b" -U CMAKE_DISABLE_FIND_PACKAGE_*
    -DCMAKE_CXX_COMPILER=${COMPILER} -DCMAKE_DISABLE_FIND_PACKAGE_MPI=ON -DHDF5=1.10.5 -DCMAKE_MODULE_PATH=${WORK}/modules)
foreach(missing "HDF5:libhdf5-dev.*HDF5_ROOT" "ZLIB:zlib1g-dev" "nlohmann_json:nlohmann-json3-dev"
                "GTest:libgtest-dev.*VEXA_BUILD_TESTS=OFF")
  string(REGEX MATCH "(.*):(.*)" matched ${missing})
  expect("${CMAKE_MATCH_1} was not found: install.*${CMAKE_MATCH_2}" ${configure}
         -DCMAKE_DISABLE_FIND_PACKAGE_${CMAKE_MATCH_1}=ON)
endforeach()
expect("GoogleMock was not found: install libgmock-dev" ${configure})
expect("1.10.4 was.: install HDF5 1.10.5" ${configure} -DHDF5=1.10.4)
expect("muparser was not found: install.*libmuparser-dev" ${configure} -U muparser_DIR
       -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DCMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH=OFF)
