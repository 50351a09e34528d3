# Sets orvo_timing_version, as in 1.2.3, from the header that owns the version. Editing it reconfigures the build.
set(orvo_version_header "${CMAKE_CURRENT_LIST_DIR}/../host/cpp/include/orvo/timing/version.hpp")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${orvo_version_header}")

file(STRINGS "${orvo_version_header}" orvo_timing_version REGEX "^#define ORVO_TIMING_VERSION_(MAJOR|MINOR|PATCH) ")
list(TRANSFORM orvo_timing_version REPLACE "^.* " "")
list(JOIN orvo_timing_version "." orvo_timing_version)
if(NOT orvo_timing_version MATCHES "^[0-9]+\\.[0-9]+\\.[0-9]+$")
  message(FATAL_ERROR "no version in ${orvo_version_header}")
endif()
