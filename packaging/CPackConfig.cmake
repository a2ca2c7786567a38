# The Debian package: `cpack -G DEB` in the build directory makes
# halvoctl_<version>-<release>_<arch>.deb from what `cmake --install` puts
# under /usr.  The shared-library dependencies are found by dpkg-shlibdeps
# (Debian package dpkg-dev), which also needs file(1).

set(HALVO_PACKAGE_MAINTAINER "Halvo maintainers <maintainers@halvo.invalid>" CACHE STRING
    "Maintainer named in the Debian package")
set(HALVO_PACKAGE_RELEASE "1" CACHE STRING "Debian revision of the package")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME halvoctl)
set(CPACK_PACKAGE_VENDOR "Halvo")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT ${HALVO_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "control utility for the Halvo USB-sharing daemon")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${HALVO_PACKAGE_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${HALVO_PACKAGE_RELEASE})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The extended description; CPack puts the summary line before it and
# indents it as dpkg wants.
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"halvoctl lets an administrator inspect and steer the Halvo daemon, which
shares this machine's USB devices with remote hosts and remote-desktop
clients: list the devices and connections, unplug a device, drop a
connection, and list, load, edit and test the sharing rules.

The package also holds the manual pages, bash and zsh completion and,
where they were built, the reference daemon halvod and the offline rule
checker halvo-rulecheck.")

include(CPack)
