# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

# The Debian packages: "cpack --config build/release/CPackConfig.cmake", after a build with CMAKE_INSTALL_PREFIX /usr.
# Installation is staged with DESTDIR, so that what belongs into /etc gets there.
set(ASD_DEBIAN_REVISION 1)
set(ASD_PACKAGE_CONTACT "The asd authors <asd@localhost>" CACHE STRING "Maintainer of the packages")

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_NAME asd)
set(CPACK_PACKAGE_CONTACT ${ASD_PACKAGE_CONTACT})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_COMPONENTS_ALL asd asd-etc libasd-dev)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_COMPONENT_ASD_GROUP asd)
set(CPACK_COMPONENT_ASD-ETC_GROUP asd)
set(CPACK_COMPONENT_LIBASD-DEV_GROUP libasd-dev)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${ASD_DEBIAN_REVISION})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND dpkg-architecture -t ${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH -f
                  OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
endif()

set(CPACK_DEBIAN_ASD_PACKAGE_NAME asd)
set(CPACK_DEBIAN_ASD_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_ASD_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ASD_PACKAGE_DEPENDS
    "systemd | systemd-standalone-sysusers | systemd-sysusers, default-dbus-system-bus | dbus-system-bus")
set(CPACK_DEBIAN_ASD_PACKAGE_RECOMMENDS "ipmitool")
set(CPACK_DEBIAN_ASD_DESCRIPTION "storage service of a baseboard management controller
It owns the small values that a storage enclosure keeps in serial EEPROMs (MAC
address, serial number, brand, models, configuration records), serves them over
IPMI and D-Bus, and keeps them through crashes, power cuts and damaged parts.
.
On a controller it uses the kernel's EEPROM files and GPIO lines, on any other
machine image files. asdctl is its command line.")
set(CPACK_DEBIAN_ASD_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/postinst ${CMAKE_CURRENT_LIST_DIR}/prerm
    ${CMAKE_CURRENT_LIST_DIR}/postrm ${CMAKE_CURRENT_LIST_DIR}/conffiles)

set(CPACK_DEBIAN_LIBASD-DEV_PACKAGE_NAME libasd-dev)
set(CPACK_DEBIAN_LIBASD-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_LIBASD-DEV_PACKAGE_DEPENDS "libglib2.0-dev, pkgconf | pkg-config")
set(CPACK_DEBIAN_LIBASD-DEV_DESCRIPTION "storage service of a management controller - module for board ports
The service's portable part as a static library, the headers of the platform
contract that a board port implements, and an example port.")

include(CPack)
