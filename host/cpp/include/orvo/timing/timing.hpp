#pragma once
// The whole library: write, read and correlate time-tag stream captures.
#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_layout.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/version.hpp"
#include "orvo/timing/xcorr_histogram.hpp"
