# Writes the vexa manual page with help2man from `vexa --help`, with each subcommand's help
# as a section of its own.
# Usage: cmake -DVEXA=<vexa> -DHELP2MAN=<help2man> -DVERSION=<v> -DOUTPUT=<file> -P ManPage.cmake
cmake_policy(VERSION 3.25)
execute_process(COMMAND ${VEXA} --help OUTPUT_VARIABLE help RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${VEXA} --help failed")
endif()
# Subcommand lines look like "  rsz, resize    Resize to a target size".
string(REGEX MATCH "Subcommands:\n(.*)$" listed "${help}")
string(REPLACE "\n" ";" lines "${CMAKE_MATCH_1}")
set(include "[SUBCOMMANDS]\n")
foreach(line IN LISTS lines)
  if(NOT line MATCHES "^  ([A-Za-z0-9]+)")
    continue()
  endif()
  set(command ${CMAKE_MATCH_1})
  execute_process(COMMAND ${VEXA} ${command} --help OUTPUT_VARIABLE sub RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${VEXA} ${command} --help failed")
  endif()
  # Usage lines name the program by the path it was run from.
  string(REPLACE "${VEXA}" "vexa" sub "${sub}")
  string(REGEX REPLACE "\n+$" "" sub "${sub}")
  string(REPLACE "\\" "\\\\" sub "${sub}")
  string(APPEND include ".SS ${command}\n.nf\n${sub}\n.fi\n")
endforeach()
get_filename_component(dir ${OUTPUT} DIRECTORY)
file(MAKE_DIRECTORY ${dir})
file(WRITE ${OUTPUT}.include "${include}")
execute_process(COMMAND ${HELP2MAN} --no-info --version-string=${VERSION}
    --name "run the mivo image-processing plugin on picture files"
    --include=${OUTPUT}.include --output=${OUTPUT}.tmp ${VEXA}
  RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "help2man failed")
endif()
file(READ ${OUTPUT}.tmp page)
string(REPLACE "${VEXA}" "vexa" page "${page}")
file(WRITE ${OUTPUT} "${page}")
file(REMOVE ${OUTPUT}.tmp ${OUTPUT}.include)
