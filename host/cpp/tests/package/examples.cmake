# The examples print what their comments say.
write_capture()
expect_correlation("${EXAMPLES}/correlate")

# Intervals of 4 us and 1 us; the first and the last tag of channel 1 are equally late.
run("${EXAMPLES}/channel_rates" pulses.tagcap)
expect("channel_rates"
  "ch0: 2500 tags, 250000 per second\nch1: 10000 tags, 1000000 per second\nch2: 0 tags\nch3: 0 tags\n" "${output}")

# 1250 pairs at 250 ps, 625 at 240 and 260 each: the mean has the error sqrt(1250 * 100) / 2500 ps and, as the bins of
# 10 ps do not resolve the width, that of a place within a bin, 10 / sqrt(12) ps.
run("${EXAMPLES}/judge_peak" pulses.tagcap)
expect("judge_peak" "significant: true\ndelay: 250.0 +- 2.9 ps\nwidth: below 20.0 ps\npairs: 2500.0 +- 50.0\n\
share of channel 0: 1.00, of channel 1: 0.25\n" "${output}")

run("${EXAMPLES}/decode_live" INPUT_FILE "${WORK}/pulses.tagcap")
expect("decode_live" "ch0: 2500 tags\nch1: 10000 tags\nch2: 0 tags\nch3: 0 tags\n" "${output}")
