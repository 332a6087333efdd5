# Install layout: include/ole/..., the two libraries, the tool, the plug-in folder, the CMake
# package (KvImage::kvimage, KvImage::kvplatform) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS kvplatform kvimage
  EXPORT KvImageTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Every header under ole/, folders kept, so that <ole/kvimage.h> and the paths it includes
# resolve against include/.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/ole
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT development
  FILES_MATCHING PATTERN "*.h")

# The plug-in folder exists even before any plug-in is built, so a host can drop modules in.
install(DIRECTORY DESTINATION ${KV_PLUGIN_INSTALL_DIR} COMPONENT runtime)

install(EXPORT KvImageTargets
  NAMESPACE KvImage::
  FILE KvImageTargets.cmake
  DESTINATION ${KV_CMAKE_INSTALL_DIR}
  COMPONENT development)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/KvImageConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KvImageConfig.cmake
  INSTALL_DESTINATION ${KV_CMAKE_INSTALL_DIR}
  PATH_VARS KV_PLUGIN_INSTALL_DIR)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/KvImageConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/KvImageConfig.cmake
  ${PROJECT_BINARY_DIR}/KvImageConfigVersion.cmake
  DESTINATION ${KV_CMAKE_INSTALL_DIR}
  COMPONENT development)

# The .pc file finds its prefix from its own place, so an installed tree may be moved.
set(KV_PC_DIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH KV_PC_TO_PREFIX "${CMAKE_INSTALL_PREFIX}/${KV_PC_DIR}" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" KV_PC_TO_PREFIX "${KV_PC_TO_PREFIX}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/kvimage.pc.in ${PROJECT_BINARY_DIR}/kvimage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/kvimage.pc DESTINATION ${KV_PC_DIR} COMPONENT development)
