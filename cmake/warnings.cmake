# The warnings every target of this project is compiled with. An interface target, so that programs
# which only include the library are not asked to share them.
add_library(orvo_warnings INTERFACE)
target_compile_options(orvo_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<BOOL:${ORVO_WARNINGS_AS_ERRORS}>:-Werror>)
