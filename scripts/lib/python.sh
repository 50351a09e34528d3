# shellcheck shell=bash
# The Python package: built, its tests run as a user has it, and once more under AddressSanitizer.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

# Debian's interpreter, which the packages below belong to; there may be another one in PATH.
readonly debian_python=/usr/bin/python3

# What the package and its tests need: one line each.
need_for_python() {
  need_for_preset dev
  local -x PATH=/usr/bin:$PATH
  need_command python3-dev "Python, 3.11 or newer, with its headers" python3-config
  need_header pybind11-dev "pybind11" pybind11/pybind11.h
  need_python_module python3-pybind11 "pybind11's Python part" pybind11
  need_python_module python3-setuptools "setuptools" setuptools
  need_python_module python3-wheel "wheel" wheel
  need_python_module python3-pip "pip" pip
  need_python_module python3-numpy "NumPy, 1.24 or newer" numpy
  need_python_module python3-pytest "pytest" pytest
  want need_python_module python3-tqdm "tqdm" tqdm
  want need_python_module python3-dask "Dask" dask
  want need_python_module python3-distributed "Dask's distributed" distributed
  want need_python_module python3-nbconvert "nbconvert" nbconvert
  want need_python_module python3-ipykernel "ipykernel" ipykernel
  want need_python_module mypy "mypy" mypy
  want need_python_module python3-pandas "pandas" pandas
  want need_python_module python3-matplotlib "Matplotlib" matplotlib
}

# Beside the programs of dev, which the other suites need anyway.
build_for_python() {
  build dev vq_verify_stream_file_xcorr vq_simulate_stream_file vq_convert_stream_file vq_inspect_stream_file &&
    build "$1" orvo_timing_python
}

# pytest_with PRESET [PYTEST ARGUMENT...]: the tests, against the package of that build tree.
pytest_with() {
  local preset=$1
  shift
  (cd -- "$root/python/tests" &&
    PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=$root/build/$preset/python ORVO_TIMING_PROGRAMS=$root/build/dev/bin \
      "$debian_python" -m pytest -p no:cacheprovider "$@")
}

run_python() {
  build_for_python python && ORVO_TEST_WHEEL=1 pytest_with python
}

# The sanitizer looks for what throws when it starts, and finds it only in a C++ library that is there by then.
# The interpreter does not give back everything at its end. What it keeps back of freed memory is little, so that
# tests can measure. Left out: mypy and Jupyter, which are not under test, and a time that this build cannot keep.
run_python_sanitized() {
  local runtimes
  build_for_python python-sanitize &&
    runtimes="$(g++ -print-file-name=libasan.so) $(g++ -print-file-name=libstdc++.so)" &&
    LD_PRELOAD=$runtimes ASAN_OPTIONS=detect_leaks=0:quarantine_size_mb=8 pytest_with python-sanitize \
      --deselect tests/test_documentation.py::test_types_are_clean --ignore test_notebook.py \
      --deselect tests/test_histogram.py::test_ctrl_c_ends_a_long_count_within_a_tenth_of_a_second
}
