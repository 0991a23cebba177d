# SPDX-License-Identifier: Apache-2.0
# Compiler warnings for every target the project defines (not for the
# example hosts or anything a parent project adds), set on each target so
# that a project embedding this one keeps its own flags. NUV_WERROR turns
# them into errors; scripts/build sets it.
function(nuv_set_warnings directory)
  get_property(targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
      target_compile_options(${target} PRIVATE -Wall -Wextra $<$<BOOL:${NUV_WERROR}>:-Werror>)
    endif()
  endforeach()
  get_property(subdirectories DIRECTORY ${directory} PROPERTY SUBDIRECTORIES)
  foreach(subdirectory ${subdirectories})
    nuv_set_warnings(${subdirectory})
  endforeach()
endfunction()
