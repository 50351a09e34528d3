#include <pybind11/pybind11.h>

#include <string>

#include "bindings.hpp"
#include "orvo/timing/stream_header_json.hpp"

namespace orvo::timing::python {

namespace {

template <class Value>
Value field(const py::dict& fields, const char* name) {
  return fields[name].cast<Value>();
}

}  // namespace

py::dict dict_of(const StreamFileHeader& header) {
  py::dict fields;
  fields["stream_format"] = to_text(header.stream_format);
  fields["mode"] = to_text(header.mode);
  fields["stream_transport"] = to_text(header.stream_transport);
  fields["channel_mask"] = header.channel_mask;
  fields["tdl_index"] = header.tdl_index;
  fields["delta_bits"] = header.delta_bits;
  fields["quantum_ps"] = header.quantum_ps;
  fields["raw64_tag_format"] = py::bytes(header.raw64_tag_format);
  fields["created_utc"] = py::bytes(header.created_utc);
  fields["application"] = py::bytes(header.application);
  fields["device_product"] = py::bytes(header.device_product);
  fields["device_serial"] = py::bytes(header.device_serial);
  fields["device_port"] = py::bytes(header.device_port);
  return fields;
}

StreamFileHeader header_of(const py::dict& fields) {
  StreamFileHeader header;
  header.stream_format = timing::detail::stream_format_from_text(field<std::string>(fields, "stream_format"));
  header.mode = timing::detail::stream_mode_from_text(field<std::string>(fields, "mode"));
  header.stream_transport =
      timing::detail::stream_transport_from_text(field<std::string>(fields, "stream_transport"));
  header.channel_mask = field<std::uint8_t>(fields, "channel_mask");
  header.tdl_index = field<std::uint8_t>(fields, "tdl_index");
  header.delta_bits = field<std::uint8_t>(fields, "delta_bits");
  header.quantum_ps = field<std::uint16_t>(fields, "quantum_ps");
  header.raw64_tag_format = field<std::string>(fields, "raw64_tag_format");
  header.created_utc = field<std::string>(fields, "created_utc");
  header.application = field<std::string>(fields, "application");
  header.device_product = field<std::string>(fields, "device_product");
  header.device_serial = field<std::string>(fields, "device_serial");
  header.device_port = field<std::string>(fields, "device_port");
  return header;
}

void bind_headers(py::module_& module) {
  module.def("header_from_json", [](const std::string& json) { return dict_of(stream_header_from_json(json)); });
  module.def("header_to_json",
             [](const py::dict& fields) { return py::bytes(stream_header_to_json(header_of(fields))); });
}

}  // namespace orvo::timing::python
