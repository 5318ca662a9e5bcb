# Script mode: cmake -DGENERATOR=make_seed_corpus -DOUT=folder -P make_seeds.cmake
# Writes a fresh seed corpus: the folder holds exactly what the generator writes now.
file(REMOVE_RECURSE ${OUT})
execute_process(COMMAND ${GENERATOR} ${OUT} RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "make_seed_corpus failed: ${result}")
endif()
