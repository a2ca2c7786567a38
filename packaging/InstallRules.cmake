# Install rules for what ships beside halvoctl, in two components that
# become the two Debian packages: `halvoctl` (the utility, halvo-rulecheck,
# halvo-attach and its systemd unit, their manual pages and completion) and `halvod` (the daemon, its manual
# page, completion, systemd units, config file and modules to load at boot).  Included at the end of
# the top-level CMakeLists.txt, after every program target is defined.
# (halvoctl itself, its pages and the completions install from cli/, doc/ and
# completions/.)

include(GNUInstallDirs)

# Absolute by default: systemd and halvod look there whatever the prefix.
set(HALVO_SYSTEMD_UNIT_DIR /lib/systemd/system CACHE PATH "Where halvod's systemd units go")
set(HALVO_CONFIG_DIR /etc/halvo CACHE PATH "Where halvod's config file goes")
set(HALVO_MODULES_LOAD_DIR /lib/modules-load.d CACHE PATH
    "Where the list of kernel modules to load at boot goes")

function(halvo_install_optional_program program destination page component)
  if(NOT TARGET ${program})
    return()
  endif()
  install(TARGETS ${program} RUNTIME DESTINATION ${destination} COMPONENT ${component})
  if(TARGET halvo_man_pages)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${PROJECT_BINARY_DIR}/doc/${page}.gz
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
  endif()
endfunction()

halvo_install_optional_program(halvod ${CMAKE_INSTALL_SBINDIR} halvod.8 halvod)
halvo_install_optional_program(halvo-rulecheck ${CMAKE_INSTALL_BINDIR} halvo-rulecheck.1 halvoctl)
halvo_install_optional_program(halvo-attach ${CMAKE_INSTALL_BINDIR} halvo-attach.1 halvoctl)
if(TARGET halvo-attach)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/systemd/halvo-attach@.service
          DESTINATION ${HALVO_SYSTEMD_UNIT_DIR} COMPONENT halvoctl)
endif()

if(TARGET halvod)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod.service
                ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod.socket
          DESTINATION ${HALVO_SYSTEMD_UNIT_DIR} COMPONENT halvod)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/halvod.conf
          DESTINATION ${HALVO_CONFIG_DIR} COMPONENT halvod)
  # The kernel's TLS layer, for the USB/IP TLS port.
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/modules-load.d/halvod.conf
          DESTINATION ${HALVO_MODULES_LOAD_DIR} COMPONENT halvod)
endif()

# Each Debian package carries the copyright file, its changelog (compressed
# reproducibly) and its lintian overrides, each with its reason.  Only the
# packages hold them: a plain `cmake --install` leaves them out.
set(HALVO_PACKAGE_MAINTAINER "Halvo developers <maintainers@halvo.invalid>" CACHE STRING
    "Maintainer named in the Debian packages and their changelog")
set(HALVO_PACKAGE_RELEASE "1" CACHE STRING "Debian revision of the packages")
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in
               ${PROJECT_BINARY_DIR}/packaging/changelog.Debian @ONLY)
execute_process(COMMAND gzip -9 -n -f ${PROJECT_BINARY_DIR}/packaging/changelog.Debian
                RESULT_VARIABLE gzip_status)
if(NOT gzip_status EQUAL 0)
  message(WARNING "gzip failed: the Debian packages would lack their changelog")
endif()
foreach(component halvoctl halvod)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/copyright
                ${PROJECT_BINARY_DIR}/packaging/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${component}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES ${CMAKE_CURRENT_LIST_DIR}/debian/${component}/lintian-overrides
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides RENAME ${component}
          COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()
