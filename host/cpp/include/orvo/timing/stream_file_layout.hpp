#pragma once
// A capture file:
//
//   offset   0          8                12                     12 + header_length
//            | magic    | header_length  | header (JSON text)   | payload to the end of the file
//            | 8 bytes  | u32, little e. | header_length bytes  | records of the header's stream format
//
// No checksum, no trailer, no alignment.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "orvo/timing/version.hpp"

namespace orvo::timing {

/// First bytes of every capture written today.
inline constexpr std::string_view kStreamFileMagic = "TAGCAP1\n";
/// First bytes of captures written by earlier firmware tools; the layout after them is the same.
inline constexpr std::string_view kEarlierStreamFileMagic = "VQSTRM1\n";

inline constexpr std::size_t kStreamFileMagicBytes = kStreamFileMagic.size();
/// Bytes before the header text: the magic word and the header's length.
inline constexpr std::uint64_t kStreamFilePrefixBytes = kStreamFileMagicBytes + sizeof(std::uint32_t);

}  // namespace orvo::timing
