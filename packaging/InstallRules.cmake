# Install rules for what ships beside halvoctl, in two components that
# become the two Debian packages: `halvoctl` (the utility, halvo-rulecheck,
# halvo-attach and its systemd unit, their manual pages and completion) and `halvod` (the daemon, its manual
# page, completion, systemd units, config file and modules to load at boot).  Included at the end of
# the top-level CMakeLists.txt, after every program target is defined.
# (halvoctl itself, its pages and the completions install from cli/, doc/ and
# completions/.)

include(GNUInstallDirs)

# halvod's systemd units and config file follow the prefix given when
# installing, so that `cmake --install build --prefix DIR` keeps them in DIR:
# they go below it, except for the system's own prefix /usr (the Debian
# packages', or `--prefix /usr`), where they go where the system reads them:
# the config folder that GNUInstallDirs gives /usr (/etc) and systemd's own
# unit folder (its pkg-config `systemdsystemunitdir`; /lib/systemd/system on
# Debian 12).  An absolute folder in either cache variable is taken as it is.
set(halvo_system_unit_dir /lib/systemd/system)
find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_get_variable(systemd_unit_dir systemd systemdsystemunitdir)
  pkg_get_variable(systemd_prefix systemd prefix)
  if(systemd_unit_dir)
    set(halvo_system_unit_dir ${systemd_unit_dir})
  endif()
endif()
# Relative to systemd's prefix (/usr/lib/systemd/system) or to the root
# (/lib/systemd/system): lib/systemd/system either way.
string(REGEX REPLACE "^(${systemd_prefix})?/" "" halvo_unit_dir "${halvo_system_unit_dir}")
set(HALVO_INSTALL_UNITDIR ${halvo_unit_dir} CACHE STRING
    "halvod's systemd units: a folder below the install prefix, or absolute")
set(HALVO_INSTALL_CONFDIR ${CMAKE_INSTALL_SYSCONFDIR}/halvo CACHE STRING
    "halvod's config file: a folder below the install prefix, or absolute")

# The config folder for the prefix /usr, as GNUInstallDirs makes it (/etc/halvo).
function(halvo_usr_config_dir out)
  set(CMAKE_INSTALL_PREFIX /usr)
  GNUInstallDirs_get_absolute_install_dir(dir HALVO_INSTALL_CONFDIR SYSCONFDIR)
  set(${out} ${dir} PARENT_SCOPE)
endfunction()

# halvo_install_system_files(<component> <folder> <folder for /usr> FILES...):
# the choice made when installing, as described above.
function(halvo_install_system_files component folder usr_folder)
  set(below_prefix "\${CMAKE_INSTALL_PREFIX}/${folder}")
  if(IS_ABSOLUTE "${folder}")
    set(below_prefix ${folder})
    set(usr_folder ${folder})
  endif()
  list(JOIN ARGN "\" \"" files)
  install(CODE "
    set(halvo_folder \"${below_prefix}\")
    if(CMAKE_INSTALL_PREFIX MATCHES \"^/usr/?$\")
      set(halvo_folder \"${usr_folder}\")
    endif()
    file(INSTALL DESTINATION \"\${halvo_folder}\" TYPE FILE FILES \"${files}\")"
    COMPONENT ${component})
endfunction()

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
  halvo_install_system_files(halvoctl ${HALVO_INSTALL_UNITDIR} ${halvo_system_unit_dir}
                             ${CMAKE_CURRENT_LIST_DIR}/systemd/halvo-attach@.service)
endif()

if(TARGET halvod)
  halvo_install_system_files(halvod ${HALVO_INSTALL_UNITDIR} ${halvo_system_unit_dir}
                             ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod.service
                             ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod.socket
                             ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod-usbip.socket
                             ${CMAKE_CURRENT_LIST_DIR}/systemd/halvod-usbip-tls.socket)
  halvo_usr_config_dir(usr_config_dir)
  halvo_install_system_files(halvod ${HALVO_INSTALL_CONFDIR} ${usr_config_dir}
                             ${CMAKE_CURRENT_LIST_DIR}/halvod.conf)
  # The kernel's TLS layer, for the USB/IP TLS port.
  halvo_install_system_files(halvod lib/modules-load.d /lib/modules-load.d
                             ${CMAKE_CURRENT_LIST_DIR}/modules-load.d/halvod.conf)
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
