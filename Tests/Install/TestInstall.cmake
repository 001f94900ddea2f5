function(run)
  execute_process(COMMAND ${ARGV} OUTPUT_VARIABLE output ERROR_VARIABLE output
                  RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    list(JOIN ARGV " " command)
    message(FATAL_ERROR "'${command}' ended with ${result}:\n${output}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
set(consumer ${WORK_DIR}/consumer)
file(REMOVE_RECURSE ${prefix} ${consumer})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

foreach(file
        ${BINDIR}/Kelmor ${MANDIR}/man1/Kelmor.1
        ${DATADIR}/bash-completion/completions/Kelmor ${DATADIR}/zsh/site-functions/_Kelmor
        ${BINDIR}/KelmorInfo ${MANDIR}/man1/KelmorInfo.1
        ${DATADIR}/bash-completion/completions/KelmorInfo
        ${DATADIR}/zsh/site-functions/_KelmorInfo
        ${BINDIR}/kelmor-run ${MANDIR}/man1/kelmor-run.1
        ${DOCDIR}/README.md ${DOCDIR}/docs/file-format.md
        ${LIBDIR}/cmake/Vexa/VexaConfig.cmake ${LIBDIR}/cmake/Vexa/VexaConfigVersion.cmake
        ${LIBDIR}/libVexaH5Archive.a ${INCLUDEDIR}/Vexa/Utils/H5/CachedH5File.hpp)
  if(NOT EXISTS ${prefix}/${file})
    message(FATAL_ERROR "${file} is not installed")
  endif()
endforeach()

# A package that names a folder of the build or of the sources works on this machine only.
file(GLOB package ${prefix}/${LIBDIR}/cmake/Vexa/*.cmake)
get_filename_component(sources ${CONSUMER_DIR}/../../.. ABSOLUTE)
foreach(file ${package})
  file(READ ${file} content)
  string(FIND "${content}" "${sources}/" found)
  if(NOT found EQUAL -1)
    message(FATAL_ERROR "${file} names ${sources}")
  endif()
endforeach()

run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${consumer} -G ${GENERATOR} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
    -DCMAKE_CXX_FLAGS=${CXX_FLAGS})
run(${CMAKE_COMMAND} --build ${consumer})
run(${consumer}/Consumer ${consumer}/table.h5)
run(${prefix}/${BINDIR}/Kelmor -o ${consumer}/joined.h5 ${consumer}/table.h5)
run(${consumer}/Consumer ${consumer}/joined.h5)
run(${prefix}/${BINDIR}/KelmorInfo -check ${consumer}/joined.h5 ${consumer}/table.h5)

run(${prefix}/${BINDIR}/Kelmor -h)
if(NOT output MATCHES "Usage:  Kelmor \\[options\\] file")
  message(FATAL_ERROR "Kelmor -h printed:\n${output}")
endif()
