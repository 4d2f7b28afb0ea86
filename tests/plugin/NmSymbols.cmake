# Reads the dynamic symbols of ${LIBRARY} that nm's <filter> selects (--defined-only or
# --undefined-only), demangled, into <out>.
function(read_dynamic_symbols filter out)
  if(NOT EXISTS "${LIBRARY}")
    message(FATAL_ERROR "plugin library not built: ${LIBRARY}")
  endif()
  execute_process(COMMAND ${NM} -DC ${filter} "${LIBRARY}"
    OUTPUT_VARIABLE symbols RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
  endif()
  set(${out} "${symbols}" PARENT_SCOPE)
endfunction()
