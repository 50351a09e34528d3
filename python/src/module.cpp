// The extension module orvo_timing._core: the library as it is, with arrays for lists. Arguments are checked and
// described in the package's Python files.
#include <pybind11/pybind11.h>

#include <exception>
#include <string>

#include "bindings.hpp"
#include "orvo/timing/error.hpp"
#include "orvo/timing/version.hpp"

namespace orvo::timing::python {

namespace {

/// As the package's exception, which carries the code.
void raise(const Error& error) {
  const py::object type = py::module_::import("orvo_timing._error").attr("Error");
  PyErr_SetObject(type.ptr(), type(error.what(), error.code).ptr());
}

void translate(std::exception_ptr thrown) {
  try {
    if (thrown) std::rethrow_exception(thrown);
  } catch (const Error& error) {
    raise(error);
  }
}

}  // namespace

PYBIND11_MODULE(_core, module) {
  module.doc() = "The C++ library, for the package's Python files only.";
  module.attr("version") = std::to_string(ORVO_TIMING_VERSION_MAJOR) + '.' +
                           std::to_string(ORVO_TIMING_VERSION_MINOR) + '.' +
                           std::to_string(ORVO_TIMING_VERSION_PATCH);
  py::register_exception_translator(translate);
  bind_headers(module);
  bind_captures(module);
  bind_correlation(module);
  bind_statistics(module);
  bind_writing(module);
}

}  // namespace orvo::timing::python
