#pragma once
// NumPy arrays as spans, and the library's lists as NumPy arrays: neither is copied.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "orvo/timing/time_tag.hpp"

namespace orvo::timing::python {

namespace py = pybind11;

/// The memory layout of `TimeTag` as NumPy's structured type.
inline py::dtype tag_dtype() {
  py::list names, formats, offsets;
  names.append("channel");
  names.append("time_ps");
  formats.append("u1");
  formats.append("i8");
  offsets.append(offsetof(TimeTag, channel));
  offsets.append(offsetof(TimeTag, time_ps));
  return {names, formats, offsets, static_cast<py::ssize_t>(sizeof(TimeTag))};
}

namespace detail {

/// A list in the order of memory, of that type and where the processor may read it. The package's functions see to
/// it; whoever calls the extension by itself gets a TypeError.
inline void require_list(const py::array& array, const py::dtype& dtype, const char* name) {
  constexpr int kAligned = 0x0100;
  const bool fits = array.ndim() == 1 && (array.flags() & py::array::c_style) != 0 &&
                    (array.flags() & kAligned) != 0 && array.dtype().equal(dtype);
  if (!fits) throw py::type_error(std::string(name) + ": not a contiguous list of the expected type");
}

}  // namespace detail

/// Valid as long as the array is.
inline std::span<const std::int64_t> times_of(const py::array& array, const char* name) {
  detail::require_list(array, py::dtype::of<std::int64_t>(), name);
  return {static_cast<const std::int64_t*>(array.data()), static_cast<std::size_t>(array.size())};
}

/// Valid as long as the array is.
inline std::span<const TimeTag> tags_of(const py::array& array, const char* name) {
  detail::require_list(array, tag_dtype(), name);
  return {static_cast<const TimeTag*>(array.data()), static_cast<std::size_t>(array.size())};
}

/// An array over memory that lives as long as `owner`, which the array holds.
template <class Owner>
py::array array_of(std::shared_ptr<Owner> owner, const void* data, std::size_t size, const py::dtype& dtype) {
  if (size == 0) return py::array(dtype, py::ssize_t{0});
  auto held = std::make_unique<std::shared_ptr<Owner>>(std::move(owner));
  const py::capsule base(held.get(), [](void* pointer) { delete static_cast<std::shared_ptr<Owner>*>(pointer); });
  static_cast<void>(held.release());  // the capsule's now
  return py::array(dtype, {static_cast<py::ssize_t>(size)}, {}, data, base);
}

template <class Item>
py::array array_of(std::vector<Item>&& items, const py::dtype& dtype) {
  auto owner = std::make_shared<std::vector<Item>>(std::move(items));
  const void* const data = owner->data();
  const std::size_t size = owner->size();
  return array_of(std::move(owner), data, size, dtype);
}

inline py::array array_of(std::vector<TimeTag>&& tags) {
  return array_of(std::move(tags), tag_dtype());
}
template <class Number>
py::array array_of(std::vector<Number>&& numbers) {
  return array_of(std::move(numbers), py::dtype::of<Number>());
}

}  // namespace orvo::timing::python
