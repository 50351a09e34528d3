# Checks with SCRIPT --check that what is in the checkout is what the script makes.
if(NOT PYTHON3)
  message("SKIPPED: python3 is missing")
  return()
endif()
execute_process(COMMAND "${PYTHON3}" "${SCRIPT}" --check RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${SCRIPT} makes something else than what is in the checkout")
endif()
