# Script mode: cmake -DCLANG_FORMAT=... -DSOURCE_DIR=... -P this
file(GLOB_RECURSE sources RELATIVE ${SOURCE_DIR}
     ${SOURCE_DIR}/include/*.h ${SOURCE_DIR}/platform/*.h ${SOURCE_DIR}/platform/*.cpp
     ${SOURCE_DIR}/src/*.h ${SOURCE_DIR}/src/*.cpp ${SOURCE_DIR}/tests/*.h
     ${SOURCE_DIR}/tests/*.cpp ${SOURCE_DIR}/examples/*.cpp ${SOURCE_DIR}/bench/*.cpp
     ${SOURCE_DIR}/tools/*.h ${SOURCE_DIR}/tools/*.cpp ${SOURCE_DIR}/fuzz/*.h
     ${SOURCE_DIR}/fuzz/*.cpp)
list(LENGTH sources count)
if(count EQUAL 0)
  message(FATAL_ERROR "no sources found under ${SOURCE_DIR}")
endif()
execute_process(COMMAND ${CLANG_FORMAT} --dry-run -Werror --style=file ${sources}
                WORKING_DIRECTORY ${SOURCE_DIR}
                RESULT_VARIABLE result ERROR_VARIABLE report)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "files differ from .clang-format (run clang-format -i on them):\n${report}")
endif()
message(STATUS "${count} files match .clang-format")
