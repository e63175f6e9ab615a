# Runs the simulator with one command line and checks its exit status and where its words went.
# Usage: cmake -DPROGRAM=<path> [-DEMULATOR=a|b] -DARGUMENTS=a|b -DSTATUS=<n> -DSTREAM=stdout|stderr
#              -DPATTERN=<regex> -P CommandLineTest.cmake
string(REPLACE "|" ";" arguments "${ARGUMENTS}")
string(REPLACE "|" ";" emulator "${EMULATOR}")
execute_process(COMMAND ${emulator} "${PROGRAM}" ${arguments} RESULT_VARIABLE status OUTPUT_VARIABLE stdout
                ERROR_VARIABLE stderr)
if(NOT status STREQUAL STATUS)
    message(FATAL_ERROR "exit status ${status}, expected ${STATUS}\nstdout: ${stdout}\nstderr: ${stderr}")
endif()
if(NOT "${${STREAM}}" MATCHES "${PATTERN}")
    message(FATAL_ERROR "${STREAM} does not match \"${PATTERN}\":\n${${STREAM}}")
endif()
# A mistake is told on stderr alone; help and results go to stdout alone.
if(STREAM STREQUAL "stderr" AND NOT stdout STREQUAL "")
    message(FATAL_ERROR "unexpected stdout: ${stdout}")
endif()
if(STREAM STREQUAL "stdout" AND NOT stderr STREQUAL "")
    message(FATAL_ERROR "unexpected stderr: ${stderr}")
endif()
