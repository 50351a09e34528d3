# The examples print what their comments say.
write_capture()
expect_correlation("${EXAMPLES}/correlate")

# Intervals of 4 us and 1 us; the first and the last tag of channel 1 are equally late.
run("${EXAMPLES}/channel_rates" pulses.tagcap)
expect("channel_rates"
  "ch0: 2500 tags, 250000 per second\nch1: 10000 tags, 1000000 per second\nch2: 0 tags\nch3: 0 tags\n" "${output}")

run("${EXAMPLES}/decode_live" INPUT_FILE "${WORK}/pulses.tagcap")
expect("decode_live" "ch0: 2500 tags\nch1: 10000 tags\nch2: 0 tags\nch3: 0 tags\n" "${output}")
