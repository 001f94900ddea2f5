# What has never been built with is refused before it fails in the middle of a build.
foreach(minimum GNU:11 Clang:16)
  string(REGEX MATCH "(.*):(.*)" matched ${minimum})
  if(CMAKE_CXX_COMPILER_ID STREQUAL CMAKE_MATCH_1 AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS CMAKE_MATCH_2)
    message(FATAL_ERROR "Vexa needs g++ 11, clang 16 or later: "
                        "${CMAKE_CXX_COMPILER} is ${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}; "
                        "name another by -DCMAKE_CXX_COMPILER")
  endif()
endforeach()
if(CMAKE_SIZEOF_VOID_P LESS 8)
  message(FATAL_ERROR "Vexa needs a target of 64 bits: ${CMAKE_CXX_COMPILER} ${CMAKE_CXX_FLAGS} is for 32")
endif()
