# The preset for installations: a tool that users share writes nothing but below the directory in which each starts it.
run("${CMAKE_COMMAND}" --preset install -S "${CHECKOUT}" -B "${WORK}/build" -G "${GENERATOR}"
  "-DCMAKE_CXX_COMPILER=${COMPILER}" -DCMAKE_BUILD_TYPE=Debug)
run("${CMAKE_COMMAND}" --build build --target vq_verify_stream_file_xcorr)

foreach(user ada bob)
  file(MAKE_DIRECTORY "${WORK}/${user}")
  run("${CMAKE_COMMAND}" -E chdir "${WORK}/${user}" "${WORK}/build/bin/vq_verify_stream_file_xcorr")
  list_files("${WORK}/${user}" files)
  list(TRANSFORM files REPLACE "[0-9]+_[0-9]+/" "TIME/")
  set(reports logs/verification/stream_file_xcorr)
  set(prefix "${reports}/TIME/synthetic_raw64_xcorr_xcorr_ch0_ch1")
  set(expected
    VRN-B/logs/stream_file_verify/verification/synthetic_raw64_xcorr.tagcap
    ${prefix}.csv ${prefix}.json ${prefix}.summary.txt ${prefix}.svg
    ${reports}/latest.csv ${reports}/latest.json ${reports}/latest.svg ${reports}/latest_summary.txt
    ${reports}/open_latest_plot.bat)
  list(SORT files)
  list(SORT expected)
  expect("files of ${user}" "${expected}" "${files}")
endforeach()
list_files("${WORK}/build/bin" beside_the_tool)
expect("files beside the tool" "vq_verify_stream_file_xcorr" "${beside_the_tool}")
