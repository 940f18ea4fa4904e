# Debian packages, one per install component (cmake/Install.cmake):
#   dsc-knx-ip-config-addon  the add-on
#   dsc-knx-ip-config-tools  knx-addon-host, knxnetip-client, velbor-device-service and the platform libraries
#   dsc-knx-ip-config-dev    headers, CMake package and pkg-config files
# Build them with `cpack -G DEB` in a Release build tree (packaging/build-debs).
set(debian_dir ${PROJECT_SOURCE_DIR}/packaging/debian)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(debian_version ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})

# The changelog's latest entry must be the version being packaged.
file(STRINGS ${debian_dir}/changelog latest_entry LIMIT_COUNT 1)
if(NOT latest_entry MATCHES "^${DSC_PACKAGE_NAME} \\(${debian_version}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${debian_version}")
endif()
execute_process(COMMAND gzip -9nc ${debian_dir}/changelog
  OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(component addon tools dev)
  install(FILES ${debian_dir}/copyright ${PROJECT_BINARY_DIR}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${DSC_PACKAGE_NAME}-${component} COMPONENT ${component})
endforeach()

# When cross-compiling, the packages are for the binaries' architecture rather
# than the build machine's (CPack's default).
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH
    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
    ERROR_QUIET COMMAND_ERROR_IS_FATAL ANY)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${DSC_PACKAGE_NAME})
set(CPACK_PACKAGE_VENDOR "DscKnxIpConfig developers")
set(CPACK_PACKAGE_CONTACT "DscKnxIpConfig maintainers <maintainers@users.noreply.c-seed-cd11c90f.example>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE ${DSC_PACKAGE_NAME})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL addon tools dev)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_COMPONENT_ADDON_DEPENDS tools)
set(CPACK_COMPONENT_DEV_DEPENDS tools)

# Library dependencies come from dpkg-shlibdeps. The add-on's on the platform
# libraries are found in the build tree and covered by the component
# dependency; the tools package declares its libraries in a shlibs file, for
# packages built against them elsewhere.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS)
set(shlibs "")
foreach(library KnxIpConnection VelborDeviceStackClient)
  get_target_property(library_dir ${library} BINARY_DIR)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${library_dir})
  string(APPEND shlibs
    "lib${library} ${PROJECT_VERSION_MAJOR} ${DSC_PACKAGE_NAME}-tools (>= ${PROJECT_VERSION})\n")
endforeach()
file(WRITE ${PROJECT_BINARY_DIR}/shlibs ${shlibs})

set(CPACK_DEBIAN_ADDON_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_ADDON_DESCRIPTION "IP configuration add-on for a KNX stack host
The DscKnxIpConfig add-on, which a KNX stack host loads from
/usr/lib/<multiarch>/knx-stack/addons. It lets the KNX stack read and change
the device's IP settings through the device's system service, and deletes the
application data and restarts the device on a KNX factory reset.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
# The device service runs dhcpcd when it applies DHCP to an interface.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS dhcpcd-base)
# The shared library cache is refreshed through dpkg's ldconfig trigger.
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA ${debian_dir}/triggers ${PROJECT_BINARY_DIR}/shlibs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Off-device host, simulated device service and platform libraries
knx-addon-host loads a KNX stack add-on and drives it with command scripts or
serves it to KNX tools over KNXnet/IP; knxnetip-client reads and writes such a
device's IP settings; velbor-device-service simulates the device's system service on a Unix domain
socket. Also the KNXnet/IP connection library for Linux and the device-stack
client library that the add-on links against.")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers for building KNX stack add-ons
The add-on interface of the KNX stack host, the KNXnet/IP connection library
and the device-stack client library, with a CMake package (KnxStackAddonSdk)
and pkg-config files.")

include(CPack)
