# SPDX-License-Identifier: Apache-2.0
# Man pages written at build time from a program's --help and --version by
# Debian's help2man; without it the build goes on without them.
find_program(NUV_HELP2MAN help2man)
if(NOT NUV_HELP2MAN)
  message(STATUS "help2man not found (Debian: help2man); no man pages")
endif()

# nuv_add_manpage(TARGET "one-line description" INCLUDE_FILE COMPONENT)
function(nuv_add_manpage target description include component)
  if(NOT NUV_HELP2MAN)
    return()
  endif()
  set(page ${CMAKE_CURRENT_BINARY_DIR}/${target}.1)
  # Installed compressed, as Debian policy wants; gzip -n keeps the result
  # the same from build to build.
  set(compressed ${page}.gz)
  # A fixed HOME, so that defaults printed in the help name no builder's.
  add_custom_command(OUTPUT ${page}
    COMMAND ${CMAKE_COMMAND} -E env HOME=~ LC_ALL=C.UTF-8
      ${NUV_HELP2MAN} --no-info --no-discard-stderr --section=1 --name=${description}
      --include=${include} --output=${page} $<TARGET_FILE:${target}>
    COMMAND gzip -9nf -k ${page}
    BYPRODUCTS ${compressed}
    DEPENDS ${target} ${include}
    COMMENT "Writing the man page of ${target}"
    VERBATIM)
  add_custom_target(${target}-manpage ALL DEPENDS ${page})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})
endfunction()
