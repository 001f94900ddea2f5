# find_python_with(<modules> <result>): the Python that can import the modules, if any can, the one on
# PATH or Debian's own; unset, with a word about it, if none can.
function(find_python_with modules result)
  foreach(candidate python3 /usr/bin/python3)
    execute_process(COMMAND ${candidate} -c "import ${modules}" RESULT_VARIABLE status
                    OUTPUT_QUIET ERROR_QUIET)
    if(status EQUAL 0)
      set(${result} ${candidate} PARENT_SCOPE)
      return()
    endif()
  endforeach()
  message(STATUS "No Python with ${modules}: tests that need it are left out")
endfunction()
