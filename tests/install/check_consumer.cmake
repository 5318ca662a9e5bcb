# Script mode: cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DCXX_COMPILER=...
#   [-DSANITIZE=address,undefined] [-DTOOLS_BUILT=ON] -P this
foreach(var BUILD_DIR CONSUMER_DIR WORK_DIR CXX_COMPILER)
  if(NOT DEFINED ${var})
    message(FATAL_ERROR "${var} is not set")
  endif()
endforeach()

include(${CMAKE_CURRENT_LIST_DIR}/run_step.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)
run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
# Libraries built with sanitizers call into the sanitizers' run-time, which only a program linked
# with the same -fsanitize= brings along.
set(sanitize_args "")
if(SANITIZE)
  set(sanitize_args -DCMAKE_CXX_FLAGS=-fsanitize=${SANITIZE}
                    -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=${SANITIZE})
endif()
run_step("configure consumer" ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build
         -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_CXX_COMPILER=${CXX_COMPILER} ${sanitize_args})
run_step("build consumer" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
# Offscreen, in case the consumer was built with the dialog, which makes a QApplication.
run_step("run consumer" ${CMAKE_COMMAND} -E env QT_QPA_PLATFORM=offscreen ${WORK_DIR}/build/consumer)
if(NOT step_output MATCHES "rainbow top: 0 3 255")
  message(FATAL_ERROR "consumer printed an unexpected answer:\n${step_output}")
endif()
# The tables, colourings and colour bar through the installed headers.
if(NOT step_output MATCHES "extensions: bar [0-9]+x[0-9]+, picture [0-9]+x[0-9]+")
  message(FATAL_ERROR "consumer did not reach the colourings and colour bars:\n${step_output}")
endif()
# 灰度 from the installed Simplified Chinese table.
if(NOT step_output MATCHES "grey in Chinese: 7070 5ea6")
  message(FATAL_ERROR "consumer did not read the installed string table:\n${step_output}")
endif()
file(GLOB_RECURSE dialog_library ${prefix}/libKivLUTSettingDlg.so*)
if(dialog_library AND NOT step_output MATCHES "dialog map: 3")
  message(FATAL_ERROR "consumer's dialog parameters are wrong:\n${step_output}")
endif()
message(STATUS "consumer output: ${step_output}")

# The command-line tool is installed too and finds the installed libraries on its own.
if(EXISTS ${prefix}/bin/kivlut)
  run_step("run the installed kivlut" ${prefix}/bin/kivlut --help)
  if(NOT step_output MATCHES "SYNOPSIS")
    message(FATAL_ERROR "the installed kivlut printed no usage:\n${step_output}")
  endif()
elseif(TOOLS_BUILT)
  message(FATAL_ERROR "kivlut was built but not installed into ${prefix}/bin")
endif()
