# Checks with SCRIPT --check that the files in the checkout are those that the script makes.
if(NOT PYTHON3)
  message("SKIPPED: python3 is missing")
  return()
endif()
execute_process(COMMAND "${PYTHON3}" "${SCRIPT}" --check RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${SCRIPT} makes other files than those in the checkout")
endif()
