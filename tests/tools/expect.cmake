# Runs TOOL with ARGS (a list) and ENV (a list of NAME=VALUE), and checks its exit code and
# that its standard output and error match the regular expressions STDOUT and STDERR.
set(command ${TOOL} ${ARGS})
if(ENV)
  set(command ${CMAKE_COMMAND} -E env ${ENV} ${command})
endif()
execute_process(COMMAND ${command}
  RESULT_VARIABLE exit_code OUTPUT_VARIABLE out ERROR_VARIABLE err)

set(failed "")
if(NOT "${exit_code}" STREQUAL "${EXIT}")
  string(APPEND failed "exit code ${exit_code}, expected ${EXIT}\n")
endif()
if(DEFINED STDOUT AND NOT STDOUT STREQUAL "" AND NOT out MATCHES "${STDOUT}")
  string(APPEND failed "standard output does not match: ${STDOUT}\n")
endif()
if(DEFINED STDERR AND NOT STDERR STREQUAL "" AND NOT err MATCHES "${STDERR}")
  string(APPEND failed "standard error does not match: ${STDERR}\n")
endif()
if(failed)
  message(FATAL_ERROR "kvimage ${ARGS}\n${failed}--- stdout\n${out}--- stderr\n${err}")
endif()
