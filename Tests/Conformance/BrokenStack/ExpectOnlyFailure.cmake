# Runs velmora-check on one fault of the broken stack and insists that exactly the named check fails, and
# that the failing session's trace was written when the check got as far as a session.
# -DCHECK_TOOL= -DLIBRARY= -DEXPECTED= -DJUNIT= [-DFAULT=] [-DTIMEOUT=]
if(NOT TIMEOUT)
    set(TIMEOUT 20)
endif()
set(trace_dir ${JUNIT}.traces)
file(REMOVE_RECURSE ${trace_dir})
file(MAKE_DIRECTORY ${trace_dir})
execute_process(COMMAND ${CHECK_TOOL} ${LIBRARY} --options "fault=${FAULT};step-ms=5" --junit ${JUNIT} --timeout-s ${TIMEOUT}
                        --trace-dir ${trace_dir}
                RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
message("${output}")
if(NOT status EQUAL 1)
    message(FATAL_ERROR "velmora-check exited with ${status}, expected 1 for a failed check: ${errors}")
endif()
file(READ ${JUNIT} junit)
string(REGEX MATCHALL "name=\"[a-z-]+\" time=\"[0-9.e+-]+\"><failure" failing "${junit}")
string(REGEX REPLACE "name=\"([a-z-]+)\"[^;]*" "\\1" failing "${failing}")
if(NOT failing STREQUAL EXPECTED)
    message(FATAL_ERROR "expected only ${EXPECTED} to fail, the JUnit file says: ${failing}")
endif()
file(GLOB traces ${trace_dir}/*.json)
if(output MATCHES "session trace: " AND NOT traces STREQUAL "${trace_dir}/${EXPECTED}.json")
    message(FATAL_ERROR "the report names a session trace, but ${trace_dir} holds: ${traces}")
endif()
if(EXPECTED STREQUAL "event-classes" AND NOT traces)
    message(FATAL_ERROR "no session trace of the failing check in ${trace_dir}")
endif()
