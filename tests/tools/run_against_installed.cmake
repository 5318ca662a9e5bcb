# Script mode: cmake -DBUILD_DIR=... -DWORK_DIR=... -DTEST_PROGRAM=... -P this
# Installs the build into a scratch prefix and runs TEST_PROGRAM against the kivlut installed
# there, so the program's checks hold for what users get, not only for the build tree.
foreach(var BUILD_DIR WORK_DIR TEST_PROGRAM)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()
include(${CMAKE_CURRENT_LIST_DIR}/../install/run_step.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix)
if(NOT EXISTS ${WORK_DIR}/prefix/bin/kivlut)
  message(FATAL_ERROR "kivlut was not installed into ${WORK_DIR}/prefix/bin")
endif()
execute_process(
  COMMAND ${CMAKE_COMMAND} -E env KIVLUT_INSTALLED_TOOL=${WORK_DIR}/prefix/bin/kivlut
          ${TEST_PROGRAM}
  RESULT_VARIABLE result)
file(REMOVE_RECURSE ${WORK_DIR})
if(NOT result EQUAL 0)
  message(FATAL_ERROR "${TEST_PROGRAM} failed against the installed kivlut (${result})")
endif()
