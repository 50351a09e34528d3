#pragma once
// The parts of the extension module, a source file each.
#include <pybind11/pybind11.h>

#include <cstdint>

#include "orvo/timing/stream_file_header.hpp"

namespace orvo::timing::python {

namespace py = pybind11;

/// Reads that follow one another in a file: part of the result for encodings that search for their framing.
inline constexpr std::uint64_t kReadBytes = std::uint64_t{1} << 20;

/// The header's fields by name; enumerations as words, texts as bytes.
py::dict dict_of(const StreamFileHeader& header);
/// The other way round. Throws what Python raises for fields that are missing or do not fit.
StreamFileHeader header_of(const py::dict& fields);

void bind_headers(py::module_& module);
void bind_captures(py::module_& module);
void bind_correlation(py::module_& module);
void bind_statistics(py::module_& module);
void bind_writing(py::module_& module);

}  // namespace orvo::timing::python
