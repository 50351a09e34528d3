#include <pybind11/pybind11.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "arrays.hpp"
#include "bindings.hpp"
#include "orvo/timing/tag_file_writer.hpp"
#include "watch.hpp"

namespace orvo::timing::python {

namespace {

/// Decoded less given time, of each channel.
py::tuple write_capture(const std::string& path, const py::array& array, const py::dict& header,
                        std::uint64_t anchor_every, bool round, unsigned start_bit, bool channel_axes,
                        py::object progress) {
  std::span<const TimeTag> tags = tags_of(array, "tags");
  const StreamFileHeader fields = header_of(header);
  TagFileWriter writer;
  Watch watch(std::move(progress));
  const std::uint64_t all = tags.size();
  std::int64_t axis_ps[kChannels] = {};
  {
    const py::gil_scoped_release unlocked;
    writer.open(path, fields, {anchor_every, round, start_bit, channel_axes});
    constexpr std::size_t kPiece = 1 << 18;
    while (!tags.empty()) {
      const auto piece = tags.first(std::min(kPiece, tags.size()));
      writer.write(piece);
      tags = tags.subspan(piece.size());
      watch.look(all - tags.size());
    }
    for (unsigned channel = 0; channel < kChannels; ++channel) axis_ps[channel] = writer.axis_ps(channel);
    writer.close();
  }
  return py::make_tuple(axis_ps[0], axis_ps[1], axis_ps[2], axis_ps[3]);
}

}  // namespace

void bind_writing(py::module_& module) {
  module.def("write_capture", &write_capture);
}

}  // namespace orvo::timing::python
