# What is installed, so that others find it with find_package(zo_bundlemgr) and with
# pkg-config, and the Debian package of it.
include(CMakePackageConfigHelpers)

set(ZO_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/zo_bundlemgr")
set(ZO_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS zo_bundlemgr EXPORT zo_bundlemgrTargets)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/bundlemgr"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    FILES_MATCHING PATTERN "*.h")

install(EXPORT zo_bundlemgrTargets
    NAMESPACE zo::
    DESTINATION "${ZO_INSTALL_CMAKEDIR}")
configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/zo_bundlemgrConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/zo_bundlemgrConfig.cmake"
    INSTALL_DESTINATION "${ZO_INSTALL_CMAKEDIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/zo_bundlemgrConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES
        "${PROJECT_BINARY_DIR}/zo_bundlemgrConfig.cmake"
        "${PROJECT_BINARY_DIR}/zo_bundlemgrConfigVersion.cmake"
        "${PROJECT_SOURCE_DIR}/cmake/FindACE.cmake"
        "${PROJECT_SOURCE_DIR}/cmake/ZoAddBundle.cmake"
    DESTINATION "${ZO_INSTALL_CMAKEDIR}")

# The prefix is told from where the file lies, so that the tree may be moved.
file(RELATIVE_PATH ZO_PKGCONFIG_TO_PREFIX
    "${CMAKE_INSTALL_PREFIX}/${ZO_INSTALL_PKGCONFIGDIR}" "${CMAKE_INSTALL_PREFIX}")
# What the library itself is linked with. A static libiconv has become a part of it.
set(ZO_PKGCONFIG_LIBS_PRIVATE "-ljsoncpp -pthread -ldl")
if(ZO_HAVE_GNU_LIBICONV AND LIBICONV_LIBRARY MATCHES "^(.+)/lib([^/]+)\\.so")
    string(PREPEND ZO_PKGCONFIG_LIBS_PRIVATE "-L${CMAKE_MATCH_1} -l${CMAKE_MATCH_2} ")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/zo_bundlemgr.pc.in" "${PROJECT_BINARY_DIR}/zo_bundlemgr.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/zo_bundlemgr.pc" DESTINATION "${ZO_INSTALL_PKGCONFIGDIR}")

if(PROJECT_IS_TOP_LEVEL)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGE_NAME zo-bundlemgr)
    set(CPACK_PACKAGE_VENDOR "zo_bundlemgr")
    set(CPACK_PACKAGE_CONTACT "zo_bundlemgr developers <zo_bundlemgr@localhost>")
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_STRIP_FILES ON)
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_SECTION libs)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    # To compile against the headers; running needs the shared libraries only.
    set(CPACK_DEBIAN_PACKAGE_RECOMMENDS libace-dev)
    include(CPack)
endif()
