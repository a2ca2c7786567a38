# cmake -DSCDOC=... -DGZIP=... -DINPUT=page.scd -DOUTPUT=page -P RenderManPage.cmake
# Renders one scdoc page to roff (OUTPUT) and to its compressed copy
# (OUTPUT.gz).  gzip -n leaves name and time out of the header, so that the
# same source always gives the same bytes.

execute_process(COMMAND ${SCDOC} INPUT_FILE ${INPUT} OUTPUT_FILE ${OUTPUT}.tmp
                RESULT_VARIABLE scdoc_status)
if(NOT scdoc_status EQUAL 0)
  file(REMOVE ${OUTPUT}.tmp)
  message(FATAL_ERROR "scdoc failed on ${INPUT}")
endif()
file(RENAME ${OUTPUT}.tmp ${OUTPUT})

execute_process(COMMAND ${GZIP} -9 -n -c INPUT_FILE ${OUTPUT} OUTPUT_FILE ${OUTPUT}.gz
                RESULT_VARIABLE gzip_status)
if(NOT gzip_status EQUAL 0)
  file(REMOVE ${OUTPUT}.gz)
  message(FATAL_ERROR "gzip failed on ${OUTPUT}")
endif()
