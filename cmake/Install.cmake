# Install rules, laid out as a Debian system expects. Three components, each
# one Debian package (cmake/Packaging.cmake):
#   addon  the add-on, in a folder of its own that hosts load add-ons from
#   tools  the off-device tools and the two platform libraries
#   dev    the boundary headers, the CMake package and the pkg-config files

# Libraries go to Debian's multiarch folder under /usr; GNUInstallDirs chooses
# it by itself only when not cross-compiling.
if(CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE AND CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$")
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Object code libraries")
endif()
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Debian packages are named ${DSC_PACKAGE_NAME}-<component>; each keeps its
# documentation in /usr/share/doc/<package>.
set(DSC_PACKAGE_NAME dsc-knx-ip-config)
set(DSC_ADDON_DIR ${CMAKE_INSTALL_LIBDIR}/knx-stack/addons)
set(DSC_HEADER_DIR ${CMAKE_INSTALL_INCLUDEDIR}/knx-stack)
set(DSC_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/KnxStackAddonSdk)
set(DSC_TOOLS_DOC_DIR ${CMAKE_INSTALL_DATADIR}/doc/${DSC_PACKAGE_NAME}-tools)
set(DSC_SYSTEMD_UNIT_DIR lib/systemd/system)
set(boundary_dir ${PROJECT_SOURCE_DIR}/DeviceStackClient/DscKnxIpConfig)

# Hosts load the add-on by path, so it stays unversioned; knx-addon-host built
# with KNX_ADDON_HOST_DEFAULT_INSTALLED loads it from here by default.
set_target_properties(DscKnxIpConfig PROPERTIES
  INSTALL_RPATH ""
  KNX_ADDON_INSTALL_DIR ${CMAKE_INSTALL_PREFIX}/${DSC_ADDON_DIR})
install(TARGETS DscKnxIpConfig LIBRARY DESTINATION ${DSC_ADDON_DIR} COMPONENT addon)

install(TARGETS knx-addon-host velbor-device-service knxnetip-client
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

# The platform libraries are public shared libraries with a SONAME; installed
# consumers find the boundary headers through KnxStackAddonSdk::Headers.
set(platform_libraries KnxIpConnection VelborDeviceStackClient)
set_target_properties(${platform_libraries} PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  INSTALL_RPATH "")

install(TARGETS ${platform_libraries} KnxStackAddonHeaders EXPORT KnxStackAddonSdkTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT tools NAMELINK_COMPONENT dev
  INCLUDES DESTINATION ${DSC_HEADER_DIR})
install(FILES
  ${boundary_dir}/KnxStackAddonInterface.h
  ${boundary_dir}/KnxIpConnectionInfo.h
  ${boundary_dir}/VelborDeviceStackClient.h
  DESTINATION ${DSC_HEADER_DIR} COMPONENT dev)

# find_package(KnxStackAddonSdk): KnxStackAddonSdk::Headers,
# KnxStackAddonSdk::KnxIpConnection and KnxStackAddonSdk::VelborDeviceStackClient.
install(EXPORT KnxStackAddonSdkTargets NAMESPACE KnxStackAddonSdk::
  DESTINATION ${DSC_CMAKE_DIR} COMPONENT dev)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KnxStackAddonSdkConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KnxStackAddonSdkConfig.cmake INSTALL_DESTINATION ${DSC_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KnxStackAddonSdkConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/KnxStackAddonSdkConfig.cmake
  ${PROJECT_BINARY_DIR}/KnxStackAddonSdkConfigVersion.cmake
  DESTINATION ${DSC_CMAKE_DIR} COMPONENT dev)

# pkg-config: knx-stack-addon-sdk (headers only), knx-ip-connection and
# velbor-device-stack-client (headers and library).
function(dsc_pkg_config name description libs)
  set(pc_name ${name})
  set(pc_description ${description})
  set(pc_libs ${libs})
  configure_file(${CMAKE_CURRENT_FUNCTION_LIST_DIR}/pkg-config.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()
dsc_pkg_config(knx-stack-addon-sdk "KNX stack add-on interface headers" "")
dsc_pkg_config(knx-ip-connection "KNXnet/IP connection library" "-L\${libdir} -lKnxIpConnection")
dsc_pkg_config(velbor-device-stack-client "Device-stack client library"
  "-L\${libdir} -lVelborDeviceStackClient")

# The simulated device service as a system service, and examples for the
# tools: a log4cplus configuration and the demonstration scripts.
configure_file(${PROJECT_SOURCE_DIR}/packaging/velbor-device-service.service.in
  ${PROJECT_BINARY_DIR}/velbor-device-service.service @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/velbor-device-service.service
  DESTINATION ${DSC_SYSTEMD_UNIT_DIR} COMPONENT tools)
install(FILES ${PROJECT_SOURCE_DIR}/packaging/examples/log4cplus.properties
  DESTINATION ${DSC_TOOLS_DOC_DIR}/examples COMPONENT tools)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/tools/knx-addon-host/demo/
  DESTINATION ${DSC_TOOLS_DOC_DIR}/examples/demo COMPONENT tools)

# Manual pages of the tools, compressed as Debian installs them.
foreach(page knx-addon-host.1 knxnetip-client.1 velbor-device-service.1)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/packaging/man/${page})
  execute_process(COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/man/${page}
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/${page}.gz COMMAND_ERROR_IS_FATAL ANY)
  install(FILES ${PROJECT_BINARY_DIR}/${page}.gz
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endforeach()
