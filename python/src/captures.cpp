#include <pybind11/pybind11.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "arrays.hpp"
#include "bindings.hpp"
#include "orvo/timing/channel_times.hpp"
#include "orvo/timing/payload_account.hpp"
#include "orvo/timing/stream_decoder.hpp"
#include "orvo/timing/stream_file_reader.hpp"
#include "watch.hpp"
#include "xcorr_stream_binding.hpp"

namespace orvo::timing::python {

namespace {

/// Keeps the times of one channel.
class OneChannel {
 public:
  OneChannel(ChannelTimes& times, unsigned channel) : times_(times), channel_(channel) {}

  void begin_chunk(std::size_t most_tags) { times_.begin_chunk(most_tags); }
  void add(unsigned channel, std::int64_t time_ps) {
    if (channel == channel_) times_.add(channel, time_ps);
  }
  void end_chunk() { times_.end_chunk(); }
  void discard_chunk() { times_.discard_chunk(); }

 private:
  ChannelTimes& times_;
  unsigned channel_;
};

/// For what the observer alone tells.
struct NoTags {
  void begin_chunk(std::size_t) {}
  void add(unsigned, std::int64_t) {}
  void end_chunk() {}
  void discard_chunk() {}
};

/// One pass through a capture. What threads share is the Python object above, which makes one of these a pass.
class CaptureFile {
 public:
  explicit CaptureFile(const std::string& path) {
    const py::gil_scoped_release unlocked;
    reader_.open(path);
  }

  py::dict header() const { return dict_of(reader_.header()); }
  py::bytes header_json() const { return reader_.header_json(); }
  std::uint64_t payload_offset() const { return reader_.payload_offset(); }

  py::list times(py::object progress);
  py::array times_of_channel(unsigned channel, py::object progress);
  py::array tags(std::uint64_t max_tags, py::object progress);
  py::object next_chunk(std::uint64_t max_bytes);
  void correlate(SharedXcorrStream& stream, py::object progress);

 private:
  template <TagSink Sink>
  void decode(Sink& sink, Watch& watch) {
    std::uint64_t bytes = 0;
    while (reader_.decode_next_chunk(kReadBytes, sink)) watch.look(bytes += kReadBytes);
  }

  StreamFileReader reader_;
};

py::array array_of_channel(const std::shared_ptr<ChannelTimes>& times, unsigned channel) {
  const std::span<const std::int64_t> list = std::as_const(*times)[channel];
  return array_of(times, list.data(), list.size(), py::dtype::of<std::int64_t>());
}

py::list CaptureFile::times(py::object progress) {
  const auto times = std::make_shared<ChannelTimes>();
  Watch watch(std::move(progress));
  {
    const py::gil_scoped_release unlocked;
    decode(*times, watch);
  }
  py::list arrays;
  for (unsigned channel = 0; channel < kChannels; ++channel) arrays.append(array_of_channel(times, channel));
  return arrays;
}

py::array CaptureFile::times_of_channel(unsigned channel, py::object progress) {
  if (channel >= kChannels) throw py::value_error("channel: channels are 0 to 3");
  const auto times = std::make_shared<ChannelTimes>();
  Watch watch(std::move(progress));
  {
    const py::gil_scoped_release unlocked;
    OneChannel sink(*times, channel);
    decode(sink, watch);
  }
  return array_of_channel(times, channel);
}

py::array CaptureFile::tags(std::uint64_t max_tags, py::object progress) {
  std::vector<TimeTag> tags;
  Watch watch(std::move(progress));
  {
    const py::gil_scoped_release unlocked;
    TagList sink(tags);
    std::uint64_t bytes = 0;
    while (tags.size() < max_tags && reader_.decode_next_chunk(kReadBytes, sink)) watch.look(bytes += kReadBytes);
    if (tags.size() > max_tags) tags.resize(static_cast<std::size_t>(max_tags));
  }
  return array_of(std::move(tags));
}

/// The tags of the next read that has some; None at the end.
py::object CaptureFile::next_chunk(std::uint64_t max_bytes) {
  std::vector<TimeTag> tags;
  Watch watch;
  {
    const py::gil_scoped_release unlocked;
    TagList sink(tags);
    while (tags.empty() && reader_.decode_next_chunk(max_bytes, sink)) watch.look(0);
  }
  if (tags.empty()) return py::none();
  return array_of(std::move(tags));
}

void CaptureFile::correlate(SharedXcorrStream& stream, py::object progress) {
  Watch watch(std::move(progress));
  const py::gil_scoped_release unlocked;
  const std::scoped_lock alone(stream.mutex());
  decode(stream, watch);
}

/// A decoder that threads may share: one waits for the other.
class LiveDecoder {
 public:
  explicit LiveDecoder(const py::dict& header) : decoder_(header_of(header)) {}

  py::array feed(const py::object& data) {
    const Bytes bytes(data);
    std::vector<TimeTag> tags;
    {
      const py::gil_scoped_release unlocked;
      const std::scoped_lock alone(mutex_);
      tags = decoder_.feed(bytes.span());
    }
    return array_of(std::move(tags));
  }

  std::uint64_t pending_bytes() {
    const py::gil_scoped_release unlocked;
    const std::scoped_lock alone(mutex_);
    return decoder_.pending_bytes.size();
  }

 private:
  /// What an object shows through the buffer protocol, which keeps it from being resized meanwhile.
  class Bytes {
   public:
    explicit Bytes(const py::object& object) {
      if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    }
    ~Bytes() { PyBuffer_Release(&view_); }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    std::span<const std::uint8_t> span() const {
      return {static_cast<const std::uint8_t*>(view_.buf), static_cast<std::size_t>(view_.len)};
    }

   private:
    Py_buffer view_{};
  };

  std::mutex mutex_;
  StreamDecoder decoder_;
};

py::dict dict_of(const LossTally& tally) {
  py::dict fields;
  fields["count"] = tally.count;
  fields["size"] = tally.size;
  return fields;
}

py::dict dict_of(const PayloadAccount<>& account, const StreamDecoder& decoder) {
  py::dict classes;
  for (const auto& [what, name] : std::array{
           std::pair{PayloadClass::records, "records"}, std::pair{PayloadClass::skipped, "skipped"},
           std::pair{PayloadClass::events, "events"},
           std::pair{PayloadClass::events_without_time, "events_without_time"},
           std::pair{PayloadClass::sync_words, "sync_words"}, std::pair{PayloadClass::time_bases, "time_bases"},
           std::pair{PayloadClass::extensions, "extensions"}, std::pair{PayloadClass::markers, "markers"},
           std::pair{PayloadClass::broken_words, "broken_words"}, std::pair{PayloadClass::searched, "searched"},
           std::pair{PayloadClass::data, "data"}, std::pair{PayloadClass::data_without_time, "data_without_time"},
           std::pair{PayloadClass::overflow, "overflow"}, std::pair{PayloadClass::sync, "sync"},
           std::pair{PayloadClass::broken_records, "broken_records"}, std::pair{PayloadClass::discarded, "discarded"},
           std::pair{PayloadClass::before_lock, "before_lock"}, std::pair{PayloadClass::trimmed, "trimmed"},
           std::pair{PayloadClass::padding, "padding"}}) {
    if (const std::uint64_t size = account.size(what); size != 0) classes[name] = size;
  }
  if (const std::uint64_t size = account.pending(decoder); size != 0) classes["pending"] = size;
  py::dict losses;
  for (std::size_t i = 0; i < kLossReasons; ++i) {
    const auto reason = static_cast<LossReason>(i);
    const LossTally tally = account.losses(reason);
    if (tally.count != 0) losses[py::str(std::string(to_text(reason)))] = dict_of(tally);
  }
  py::list tags, wraps;
  for (unsigned channel = 0; channel < kChannels; ++channel) {
    tags.append(account.tags(channel));
    wraps.append(account.wraps(channel));
  }
  py::dict fields;
  fields["units_per_byte"] = account.units_per_byte();
  fields["classes"] = classes;
  fields["losses"] = losses;
  fields["lost"] = dict_of(account.lost());
  fields["tags"] = tags;
  fields["wraps"] = wraps;
  fields["framings_won"] = account.framings_won();
  fields["framings_lost"] = account.framings_lost();
  fields["unanchored"] = account.unanchored();
  return fields;
}

/// The reader keeps its decoder to itself, and an account ends with a look at the decoder: so the payload is read
/// here.
py::dict account_of(const std::string& path, std::uint64_t payload_offset, const py::dict& header,
                    py::object progress) {
  StreamDecoder decoder(header_of(header));
  NoLossListener nobody;
  PayloadAccount<> account(decoder.header, nobody);
  Watch watch(std::move(progress));
  {
    const py::gil_scoped_release unlocked;
    std::ifstream file(path, std::ios::binary);
    if (!file || !file.seekg(static_cast<std::streamoff>(payload_offset))) {
      throw Error("Capture: cannot read " + path, kFileFailure);
    }
    std::vector<char> bytes(kReadBytes);
    std::uint64_t done = 0;
    NoTags nowhere;
    while (file.read(bytes.data(), static_cast<std::streamsize>(bytes.size())), file.gcount() > 0) {
      const auto count = static_cast<std::size_t>(file.gcount());
      decoder.feed({reinterpret_cast<const std::uint8_t*>(bytes.data()), count}, nowhere, account);
      watch.look(done += count);
    }
    if (file.bad()) throw Error("Capture: payload read failed", kFileFailure);
    account.finish(decoder);
  }
  return dict_of(account, decoder);
}

}  // namespace

void bind_captures(py::module_& module) {
  py::class_<CaptureFile>(module, "CaptureFile")
      .def(py::init<const std::string&>())
      .def_property_readonly("header", &CaptureFile::header)
      .def_property_readonly("header_json", &CaptureFile::header_json)
      .def_property_readonly("payload_offset", &CaptureFile::payload_offset)
      .def("times", &CaptureFile::times)
      .def("times_of_channel", &CaptureFile::times_of_channel)
      .def("tags", &CaptureFile::tags)
      .def("next_chunk", &CaptureFile::next_chunk)
      .def("correlate", &CaptureFile::correlate);
  py::class_<LiveDecoder>(module, "LiveDecoder")
      .def(py::init<const py::dict&>())
      .def("feed", &LiveDecoder::feed)
      .def_property_readonly("pending_bytes", &LiveDecoder::pending_bytes);
  module.def("account_of", &account_of);
}

}  // namespace orvo::timing::python
