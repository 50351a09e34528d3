# KissFFT in single precision, as Debian's libkissfft-dev has it: the target KissFFT::Float. Its own package files look for
# static libraries, which Debian does not have.
find_path(KissFFT_INCLUDE_DIR kiss_fftr.h PATH_SUFFIXES kissfft)
find_library(KissFFT_LIBRARY kissfft-float)
mark_as_advanced(KissFFT_INCLUDE_DIR KissFFT_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(KissFFT REQUIRED_VARS KissFFT_LIBRARY KissFFT_INCLUDE_DIR)
if(KissFFT_FOUND AND NOT TARGET KissFFT::Float)
  add_library(KissFFT::Float UNKNOWN IMPORTED)
  set_target_properties(KissFFT::Float PROPERTIES IMPORTED_LOCATION "${KissFFT_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${KissFFT_INCLUDE_DIR}" INTERFACE_COMPILE_DEFINITIONS "kiss_fft_scalar=float")
endif()
