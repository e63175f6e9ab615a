# `cmake --install` puts the library (component Runtime), its interface headers, a CMake package
# (find_package(Velmora)) and a pkg-config file (component Development) in place. The stand-ins for the
# browser's libuva and the platform's libtlog, with their Uva/ and Tlog/ headers, are a component of
# their own (StandIns): a platform build leaves them out, because the platform ships the real ones under
# the same names. Everything installed finds its neighbours from where it lies, so a prefix can be moved.
include(CMakePackageConfigHelpers)

set(velmora_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Velmora)
if(VELMORA_INSTALL_STAND_INS)
    set(velmora_stand_ins_default "")
else()
    set(velmora_stand_ins_default EXCLUDE_FROM_ALL)
endif()

install(TARGETS velmora_uva velmora_tlog EXPORT VelmoraStandInTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT StandIns ${velmora_stand_ins_default}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY Platform/Uva/Uva Platform/Tlog/Tlog DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT StandIns ${velmora_stand_ins_default} FILES_MATCHING PATTERN "*.h")
install(EXPORT VelmoraStandInTargets NAMESPACE Velmora:: DESTINATION ${velmora_package_dir}
        COMPONENT StandIns ${velmora_stand_ins_default})

install(TARGETS velmora EXPORT VelmoraTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY Interface/Velmora DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
        FILES_MATCHING PATTERN "*.h")
install(EXPORT VelmoraTargets NAMESPACE Velmora:: DESTINATION ${velmora_package_dir} COMPONENT Development)

configure_package_config_file(cmake/VelmoraConfig.cmake.in "${CMAKE_BINARY_DIR}/VelmoraConfig.cmake"
                              INSTALL_DESTINATION ${velmora_package_dir})
write_basic_package_version_file("${CMAKE_BINARY_DIR}/VelmoraConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_BINARY_DIR}/VelmoraConfig.cmake" "${CMAKE_BINARY_DIR}/VelmoraConfigVersion.cmake"
              cmake/VelmoraBoostHeaders.cmake
        DESTINATION ${velmora_package_dir} COMPONENT Development)

# The prefix is computed from where pkg-config finds the file, not fixed at configure time.
file(RELATIVE_PATH velmora_pc_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/velmora.pc.in "${CMAKE_BINARY_DIR}/velmora.pc" @ONLY)
install(FILES "${CMAKE_BINARY_DIR}/velmora.pc" DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT Development)

install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/velmora RENAME copyright COMPONENT Runtime)
