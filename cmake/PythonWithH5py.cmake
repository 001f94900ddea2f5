# Sets python_with_h5py to a Python that can import h5py, or leaves it unset.
foreach(candidate python3 /usr/bin/python3)
  execute_process(COMMAND ${candidate} -c "import h5py" RESULT_VARIABLE result
                  OUTPUT_QUIET ERROR_QUIET)
  if(result EQUAL 0)
    set(python_with_h5py ${candidate})
    break()
  endif()
endforeach()
