# Boost is used header-only. Debian installs the headers for the host; they serve a cross compiler too,
# so they are offered through a directory that holds nothing but boost/ (adding /usr/include itself would
# mix the host's C library headers into a cross build). The project uses this file for its own build and
# installs it with its CMake package, so that a consumer's cross build finds Boost the same way.
# Set VELMORA_BOOST_ROOT to the directory above boost/ when the headers live elsewhere.
function(velmora_add_boost_headers target)
    if(TARGET ${target})
        return()
    endif()
    find_path(VELMORA_BOOST_ROOT boost/version.hpp PATHS /usr/include /usr/local/include
              NO_CMAKE_FIND_ROOT_PATH NO_DEFAULT_PATH)
    if(NOT VELMORA_BOOST_ROOT)
        message(FATAL_ERROR "Boost headers not found: install libboost-dev or set VELMORA_BOOST_ROOT")
    endif()
    set(directory "${CMAKE_BINARY_DIR}/velmora-boost-headers")
    file(MAKE_DIRECTORY "${directory}")
    if(NOT EXISTS "${directory}/boost")
        file(CREATE_LINK "${VELMORA_BOOST_ROOT}/boost" "${directory}/boost" SYMBOLIC)
    endif()
    # Imported, so its headers count as system headers: Boost's warnings are not ours.
    add_library(${target} INTERFACE IMPORTED)
    set_target_properties(${target} PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${directory}")
endfunction()
