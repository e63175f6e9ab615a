# Test programs built on GoogleTest.

# GoogleTest and GoogleMock are built from source with the project's flags (sanitizers, cross compilers):
# Debian's googletest package puts the sources in /usr/src/googletest.
set(VELMORA_GOOGLETEST_DIR /usr/src/googletest CACHE PATH
    "GoogleTest's source tree (with googlemock), built with the project's flags")
if(NOT EXISTS "${VELMORA_GOOGLETEST_DIR}/googlemock/CMakeLists.txt")
    message(FATAL_ERROR "GoogleTest's sources not found in ${VELMORA_GOOGLETEST_DIR}: install Debian's googletest "
                        "(scripts/install-deps) or set VELMORA_GOOGLETEST_DIR")
endif()
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
block(SCOPE_FOR VARIABLES)
    set(CMAKE_CXX_STANDARD 17)
    add_subdirectory("${VELMORA_GOOGLETEST_DIR}" "${CMAKE_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
endblock()

include(GoogleTest)

# Every case of a GoogleTest program becomes a ctest test of its own, named PROGRAM.Suite.Case, so that
# `ctest -R PROGRAM` still selects the whole program and a failure names its case. The cases are listed
# when ctest runs, not when the program is linked: a cross build needs its emulator only for testing, and
# the generous timeout covers listing under a slow emulator on a busy machine. A parameterised case is
# named by its index: GoogleTest prints a table row's value as raw bytes, pointers included.
#   velmora_discover_tests(TARGET [LABELS label...] [PROPERTIES name value...])
function(velmora_discover_tests target)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "LABELS;PROPERTIES")
    set(properties ${arg_PROPERTIES})
    if(arg_LABELS)
        list(APPEND properties LABELS "${arg_LABELS}")
    endif()
    gtest_discover_tests(${target} TEST_PREFIX "${target}." DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120
                         NO_PRETTY_VALUES PROPERTIES ${properties})
endfunction()
