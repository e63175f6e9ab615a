# Boost is used header-only. Debian installs the headers for the host; they serve the cross compiler
# too, so they are offered through a directory that holds nothing but boost/ (adding /usr/include
# itself would mix the host's C library headers into a cross build).
find_path(VELMORA_BOOST_ROOT boost/version.hpp PATHS /usr/include /usr/local/include NO_CMAKE_FIND_ROOT_PATH
          NO_DEFAULT_PATH)
if(NOT VELMORA_BOOST_ROOT)
    message(FATAL_ERROR "Boost headers not found: install libboost-dev (scripts/install-deps)")
endif()
set(velmora_boost_dir "${CMAKE_BINARY_DIR}/boost-headers")
file(MAKE_DIRECTORY "${velmora_boost_dir}")
if(NOT EXISTS "${velmora_boost_dir}/boost")
    file(CREATE_LINK "${VELMORA_BOOST_ROOT}/boost" "${velmora_boost_dir}/boost" SYMBOLIC)
endif()
add_library(velmora_boost INTERFACE)
target_include_directories(velmora_boost SYSTEM INTERFACE "$<BUILD_INTERFACE:${velmora_boost_dir}>")
