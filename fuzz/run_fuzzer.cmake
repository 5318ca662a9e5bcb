# Script mode: cmake -DFUZZER=... -DSEEDS=folder -DWORK=folder "-DARGS=-flag;-flag" -P run_fuzzer.cmake
# Runs a fuzz target on a fresh copy of its seed corpus, so the seeds themselves never change and
# every run starts from them. Crash inputs are written into WORK.
file(REMOVE_RECURSE ${WORK})
file(MAKE_DIRECTORY ${WORK}/corpus)
file(GLOB seeds ${SEEDS}/*)
if(NOT seeds)
  message(FATAL_ERROR "no seeds in ${SEEDS}")
endif()
file(COPY ${seeds} DESTINATION ${WORK}/corpus)
execute_process(COMMAND ${FUZZER} ${ARGS} -artifact_prefix=${WORK}/ ${WORK}/corpus
                RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  file(GLOB artifacts ${WORK}/crash-* ${WORK}/timeout-* ${WORK}/oom-* ${WORK}/leak-*)
  message(FATAL_ERROR "${FUZZER} failed (${result}); reproducers: ${artifacts}")
endif()
