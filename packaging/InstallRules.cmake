# Install rules for the programs that ship beside halvoctl when they are part
# of the build, each together with its manual page.  Included at the end of
# the top-level CMakeLists.txt, after every program target is defined.
# (halvoctl itself, its pages and the completions install from cli/, doc/ and
# completions/.)

include(GNUInstallDirs)

function(halvo_install_optional_program program destination page)
  if(NOT TARGET ${program})
    return()
  endif()
  install(TARGETS ${program} RUNTIME DESTINATION ${destination})
  if(TARGET halvo_man_pages)
    string(REGEX MATCH "[0-9]$" section ${page})
    install(FILES ${PROJECT_BINARY_DIR}/doc/${page}.gz
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section})
  endif()
endfunction()

halvo_install_optional_program(halvod ${CMAKE_INSTALL_SBINDIR} halvod.8)
halvo_install_optional_program(halvo-rulecheck ${CMAKE_INSTALL_BINDIR} halvo-rulecheck.1)
