# What `cmake --install` puts in place: the library, its public headers, a pkg-config file and a CMake package. The
# installed tree can be moved: both find the library from where they lie.
include(CMakePackageConfigHelpers)

if(TQ4_STRIP)
  install(CODE "set(CMAKE_INSTALL_DO_STRIP TRUE)") # what the option --strip of `cmake --install` sets
endif()
install(TARGETS Tq4_c_objectD-1.0 EXPORT tq4Targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY include/tq4 DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT tq4Targets NAMESPACE tq4:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tq4)

configure_package_config_file(cmake/tq4Config.cmake.in ${PROJECT_BINARY_DIR}/tq4Config.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tq4)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tq4ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tq4Config.cmake ${PROJECT_BINARY_DIR}/tq4ConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tq4)

file(RELATIVE_PATH TQ4_PREFIX_FROM_PKGCONFIG /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(cmake/tq4.pc.in ${PROJECT_BINARY_DIR}/tq4.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tq4.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
