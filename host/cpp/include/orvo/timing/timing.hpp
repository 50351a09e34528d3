#pragma once
// The whole library: write, read and correlate time-tag stream captures.
#include "orvo/timing/byte_queue.hpp"
#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/offset_estimate.hpp"
#include "orvo/timing/sorted_times.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_decoder_state.hpp"
#include "orvo/timing/stream_file_header.hpp"
#include "orvo/timing/stream_file_layout.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "orvo/timing/stream_file_writer.hpp"
#include "orvo/timing/stream_header_json.hpp"
#include "orvo/timing/tag_sink.hpp"
#include "orvo/timing/time_tag.hpp"
#include "orvo/timing/version.hpp"  // first: says in words when the language is too old
#include "orvo/timing/xcorr_histogram.hpp"
#include "orvo/timing/xcorr_window.hpp"
