# Dygraphs, as Debian's libjs-dygraphs has it: Dygraphs_SCRIPT and Dygraphs_STYLE, two files for a page, and the target
# Dygraphs::Dygraphs, which only says that they were found.
find_file(Dygraphs_SCRIPT dygraph.min.js PATHS /usr/share/javascript /usr/share/nodejs PATH_SUFFIXES dygraphs dygraphs/dist)
find_file(Dygraphs_STYLE dygraph.min.css PATHS /usr/share/javascript /usr/share/nodejs PATH_SUFFIXES dygraphs dygraphs/dist)
mark_as_advanced(Dygraphs_SCRIPT Dygraphs_STYLE)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Dygraphs REQUIRED_VARS Dygraphs_SCRIPT Dygraphs_STYLE)
if(Dygraphs_FOUND AND NOT TARGET Dygraphs::Dygraphs)
  add_library(Dygraphs::Dygraphs INTERFACE IMPORTED)
endif()
