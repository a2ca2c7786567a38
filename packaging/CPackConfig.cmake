# The Debian packages: `cpack -G DEB` in the build directory makes
# halvoctl_<version>-<release>_<arch>.deb and, when halvod is built,
# halvod_<version>-<release>_<arch>.deb, one per install component (see
# packaging/InstallRules.cmake).  The shared-library dependencies are found
# by dpkg-shlibdeps (Debian package dpkg-dev), which also needs file(1).

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halvo)
set(CPACK_PACKAGE_VENDOR "Halvo")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${HALVO_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL halvoctl)
if(TARGET halvod)
  list(APPEND CPACK_COMPONENTS_ALL halvod)
endif()

set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${HALVO_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${HALVO_PACKAGE_RELEASE})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Maintainer scripts 0755, conffiles 0644, whatever the checkout's modes.
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_HALVOCTL_PACKAGE_NAME halvoctl)
set(CPACK_DEBIAN_HALVOCTL_DESCRIPTION
"control utility for the Halvo USB-sharing daemon
halvoctl lets an administrator inspect and steer the Halvo daemon, which
shares this machine's USB devices with remote hosts and remote-desktop
clients: list the devices and connections, unplug a device, drop a
connection, and list, load, edit and test the sharing rules.

The package also holds halvo-rulecheck, which checks a rule file without a
daemon; halvo-attach, which imports the USB devices a USB/IP server shares
(from halvod or any other) through the kernel's vhci-hcd, with a systemd unit
that keeps a device attached; the manual pages, and bash and zsh completion.")

set(CPACK_DEBIAN_HALVOD_PACKAGE_NAME halvod)
# addgroup makes the admin group at install.
set(CPACK_DEBIAN_HALVOD_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_HALVOD_PACKAGE_RECOMMENDS halvoctl)
set(CPACK_DEBIAN_HALVOD_PACKAGE_CONTROL_EXTRA
    ${CMAKE_CURRENT_LIST_DIR}/debian/halvod/conffiles
    ${CMAKE_CURRENT_LIST_DIR}/debian/halvod/postinst
    ${CMAKE_CURRENT_LIST_DIR}/debian/halvod/prerm
    ${CMAKE_CURRENT_LIST_DIR}/debian/halvod/postrm)
set(CPACK_DEBIAN_HALVOD_DESCRIPTION
"Halvo USB-sharing daemon
halvod shares this machine's USB devices with remote hosts as its sharing
rules decide, and takes commands from halvoctl on the loopback interface:
device and connection listings, unplugging, dropping connections and rule
transactions, changes allowed to root, its own user and the halvo group.

The package holds the daemon, its manual page, bash and zsh completion,
systemd units for socket activation on 127.0.0.1:32999 and, once enabled, on
the USB/IP ports 3240 and 3241 (TLS), and the config file
/etc/halvo/halvod.conf.")

include(CPack)
