# `cmake --install` puts the library, the interface headers, a CMake package (find_package(Velmora))
# and a pkg-config file in place.
include(CMakePackageConfigHelpers)

install(TARGETS velmora velmora_uva velmora_tlog EXPORT VelmoraTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY Interface/Velmora Platform/Uva/Uva Platform/Tlog/Tlog
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT VelmoraTargets NAMESPACE Velmora:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)

configure_package_config_file(cmake/VelmoraConfig.cmake.in "${CMAKE_BINARY_DIR}/VelmoraConfig.cmake"
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)
write_basic_package_version_file("${CMAKE_BINARY_DIR}/VelmoraConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/VelmoraConfig.cmake" "${CMAKE_BINARY_DIR}/VelmoraConfigVersion.cmake"
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)

configure_file(cmake/velmora.pc.in "${CMAKE_BINARY_DIR}/velmora.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/velmora.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
