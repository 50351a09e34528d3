# The parts of a build that need more than a compiler. Each has a cache entry ORVO_BUILD_<NAME>:
#   AUTO  built where its packages are found, else left out with one line that names Debian's packages
#   ON    a missing package is an error
#   OFF   not built, and nothing is looked for
#
#   orvo_part(<NAME> <default> <what it is> [<imported target>=<Debian package> | <NAME of an earlier part>]...)
#
# sets ORVO_WITH_<NAME>. An imported target is looked for in the package that its namespace is called after.
function(orvo_part name default what)
  set(ORVO_BUILD_${name} "${default}" CACHE STRING "Build ${what}: AUTO (where its packages are), ON or OFF")
  set_property(CACHE ORVO_BUILD_${name} PROPERTY STRINGS AUTO ON OFF)
  set(wanted "${ORVO_BUILD_${name}}")
  set(missing "")
  if(NOT wanted)
    set(missing "ORVO_BUILD_${name}=ON")
  else()
    foreach(need IN LISTS ARGN)
      orvo_append_missing("${need}")
    endforeach()
    list(REMOVE_DUPLICATES missing)
    list(JOIN missing ", " names)
    if(missing AND wanted STREQUAL "AUTO")
      message(STATUS "Left out: ${what} (missing: ${names})")
    elseif(missing)
      message(FATAL_ERROR "ORVO_BUILD_${name}=${wanted} asks for ${what} (missing: ${names})")
    endif()
  endif()

  set(ORVO_MISSING_FOR_${name} "${missing}" PARENT_SCOPE)
  set(ORVO_WITH_${name} ON PARENT_SCOPE)
  if(missing)
    set(ORVO_WITH_${name} OFF PARENT_SCOPE)
  endif()
endfunction()

# Appends to `missing` of the caller what a need lacks: Debian's package, or what an earlier part lacks.
function(orvo_append_missing need)
  if(need MATCHES "^(([^:]+)::[^=]+)=(.+)$")
    set(target "${CMAKE_MATCH_1}")
    set(debian_package "${CMAKE_MATCH_3}")
    if(NOT TARGET "${target}")
      find_package("${CMAKE_MATCH_2}" QUIET)
    endif()
    if(NOT TARGET "${target}")
      list(APPEND missing "${debian_package}")
    endif()
  else()
    list(APPEND missing ${ORVO_MISSING_FOR_${need}})
  endif()
  set(missing "${missing}" PARENT_SCOPE)
endfunction()
