# Every choice that depends on the operating system or the toolchain, in one
# place. The build calls halvo_platform_choices with the system it builds
# for; cmake/check-platform-choices.cmake calls the same function with the
# names of other systems, so that a choice meant for one system cannot leak
# into another unnoticed.

# halvo_platform_choices(<system-name> <compiler-id> <prefix>)
# Sets, in the caller's scope:
#   <prefix>_PROGRAM_LINK      link options for halvoctl, which lives a few
#                              milliseconds per command: wholly static where
#                              the C library supports it, so that start-up
#                              maps no shared library
#   <prefix>_PROGRAM_FALLBACK  the same where position-independent static
#                              executables cannot be linked
#   <prefix>_RUNTIME_LINK      link options for halvod and halvo-rulecheck:
#                              the C++ runtime linked in where it is a
#                              separate library, dead code dropped
#   <prefix>_HARDENING_COMPILE compile options that harden every program:
#                              checked buffer functions, stack protector
#   <prefix>_HARDENING_LINK    link options that harden them: relocations
#                              read-only, bound at start (ELF systems)
#   <prefix>_LINUX_BACKENDS    ON where sysfs and netlink exist
#   <prefix>_SYSTEM_LOG        "oslog" on Apple, "syslog" elsewhere
#   <prefix>_MAY_USE_SYSTEMD   ON where libsystemd can exist (it is then
#                              looked for with pkg-config)
function(halvo_platform_choices system compiler prefix)
  set(program "")
  set(fallback "")
  set(runtime "")
  set(hardening_compile -fstack-protector-strong)
  set(hardening_link "")
  set(linux_backends OFF)
  set(system_log "syslog")
  set(systemd OFF)
  if(system STREQUAL "Linux")
    # glibc links static PIE executables (address randomisation kept);
    # older toolchains only plain static ones.
    set(program -static-pie -Wl,--gc-sections)
    set(fallback -static -Wl,--gc-sections)
    set(runtime -static-libstdc++ -static-libgcc -Wl,--gc-sections)
    set(linux_backends ON)
    set(systemd ON)
  endif()
  if(system MATCHES "Linux|FreeBSD")
    # The C library's checked functions (the -U: some compilers define it
    # already); Apple's SDK has them on by default. Apple's linker has no -z.
    list(APPEND hardening_compile -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
    set(hardening_link -Wl,-z,relro,-z,now)
  elseif(system STREQUAL "Darwin")
    # Apple links no static executables and ships the C++ runtime with the
    # system; its linker drops unused code with -dead_strip.
    set(program -Wl,-dead_strip)
    set(fallback -Wl,-dead_strip)
    set(runtime -Wl,-dead_strip)
    set(system_log "oslog")
  endif()
  # Elsewhere (the BSDs) the C++ runtime is part of the base system and
  # every program links dynamically, as the system's own do.
  if(NOT compiler MATCHES "GNU|Clang")
    set(program "")
    set(fallback "")
    set(runtime "")
    set(hardening_compile "")
    set(hardening_link "")
  endif()
  set(${prefix}_HARDENING_COMPILE "${hardening_compile}" PARENT_SCOPE)
  set(${prefix}_HARDENING_LINK "${hardening_link}" PARENT_SCOPE)
  set(${prefix}_PROGRAM_LINK "${program}" PARENT_SCOPE)
  set(${prefix}_PROGRAM_FALLBACK "${fallback}" PARENT_SCOPE)
  set(${prefix}_RUNTIME_LINK "${runtime}" PARENT_SCOPE)
  set(${prefix}_LINUX_BACKENDS ${linux_backends} PARENT_SCOPE)
  set(${prefix}_SYSTEM_LOG ${system_log} PARENT_SCOPE)
  set(${prefix}_MAY_USE_SYSTEMD ${systemd} PARENT_SCOPE)
endfunction()
