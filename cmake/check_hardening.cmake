# Fails unless READELF shows that PROGRAM is hardened as hardening.cmake says.
if(NOT READELF)
  message("SKIPPED: no readelf")
  return()
endif()
execute_process(COMMAND "${READELF}" --wide --file-header --program-headers --dynamic --dyn-syms "${PROGRAM}"
  OUTPUT_VARIABLE elf COMMAND_ERROR_IS_FATAL ANY)

function(require what pattern)
  if(NOT elf MATCHES "${pattern}")
    message(SEND_ERROR "${PROGRAM} has no ${what}")
  endif()
endfunction()

require("position-independent code" "Type: +DYN ")
require("mark of a position-independent program" "FLAGS_1[^\n]* PIE")
require("read-only relocations" "GNU_RELRO")
require("binding at the start, without which relocations stay writable" "FLAGS_1[^\n]* NOW|BIND_NOW")
require("stack without code" "GNU_STACK[^\n]* RW ")
require("watched stack frames" "__stack_chk_fail")
