# The project's warnings, given to each of its targets rather than to
# everything in the build, so a parent project keeps its own.
function(orvante_warnings)
  foreach(target ${ARGN})
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  endforeach()
endfunction()

# Every target defined below the project's own folders gets them.
function(orvante_warn_all_targets folder)
  get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
  foreach(target ${targets})
    get_target_property(type ${target} TYPE)
    if(NOT type STREQUAL "INTERFACE_LIBRARY")
      orvante_warnings(${target})
    endif()
  endforeach()
  get_property(children DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
  foreach(child ${children})
    orvante_warn_all_targets(${child})
  endforeach()
endfunction()
