# run_step(WHAT COMMAND...): runs one step of an install-tree check, stops the check with the
# step's output when it fails, and leaves its standard output in step_output.
function(run_step what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${what} failed (${result}):\n${out}\n${err}")
  endif()
  set(step_output "${out}" PARENT_SCOPE)
endfunction()
