#pragma once
// Part of vq_inspect_stream_file: file-local throughout.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace {

/// Notices when a stretch of tags comes twice, as when a buffer is written a second time.
///
/// Each tag is a symbol, a hash of its channel and of the step to it. The stream is cut where a symbol's low 8 bits
/// are 0: the same tags give the same pieces, wherever they stand. A piece is looked up among the last 65536.
class RepeatedPieces {
 public:
  /// The next tags: a channel, 0 to 3, and a step each.
  void add(std::span<const std::uint8_t> channels, std::span<const std::uint64_t> steps_ps) {
    Growing piece = piece_;  // in registers: a store could change a member, for all the compiler knows
    for (std::size_t at = 0; at < steps_ps.size();) {
      const std::size_t from = at;
      const std::size_t end =
          piece.is_varied ? steps_ps.size() : std::min(steps_ps.size(), from + kFewestSymbols / 2);
      bool is_cut = false;
      while (at < end && !is_cut) {
        const std::uint64_t symbol = mixed(steps_ps[at] + (std::uint64_t{channels[at]} << 62));
        piece.hash = std::rotl(piece.hash, 7) + symbol;
        if (!piece.is_varied) piece.kinds |= std::uint64_t{1} << (symbol >> 58);
        ++at;
        is_cut = (symbol & 0xFF) == 0;
      }
      piece.length += at - from;
      piece.is_varied = piece.is_varied || std::popcount(piece.kinds) >= kFewestKinds;
      if (!is_cut) continue;
      if (piece.is_varied && piece.length >= kFewestSymbols) look_up(piece);
      piece = {};
    }
    piece_ = piece;
  }
  std::uint64_t found() const { return found_; }
  /// Tags in these pieces.
  std::uint64_t tags() const { return found_tags_; }

 private:
  static constexpr std::size_t kPieces = 65'536;
  static constexpr std::uint64_t kFewestSymbols = 64;
  static constexpr int kFewestKinds = 24;  // a periodic channel has few
  static constexpr unsigned kMostTries = 32;

  // Pieces are numbered from 1. Those of one bucket are chained from the latest to the earliest.
  struct Piece {
    std::uint64_t hash = 0;
    std::uint64_t length = 0;
    std::uint64_t earlier = 0;
  };

  static std::uint64_t mixed(std::uint64_t bits) {
    bits *= 0xD6E8'FEB8'6659'FD93;
    return bits ^ bits >> 32;
  }

  struct Growing {
    std::uint64_t hash = 0;
    std::uint64_t kinds = 0;  // which of 64 kinds of symbols the piece holds
    std::uint64_t length = 0;
    bool is_varied = false;  // enough kinds: further ones need not be looked for
  };

  void look_up(const Growing& found) {
    if (pieces_.empty()) {
      pieces_.resize(kPieces);
      latest_.resize(kPieces);
    }
    std::uint64_t& latest = latest_[(found.hash >> 32) % kPieces];
    std::uint64_t at = latest;
    for (unsigned tries = 0; at != 0 && at + kPieces > pieces_seen_ && tries < kMostTries; ++tries) {
      const Piece& piece = pieces_[at % kPieces];
      if (piece.hash == found.hash && piece.length == found.length) {
        ++found_;
        found_tags_ += found.length;
        break;
      }
      at = piece.earlier;
    }
    ++pieces_seen_;
    pieces_[pieces_seen_ % kPieces] = {found.hash, found.length, latest};
    latest = pieces_seen_;
  }

  Growing piece_;
  std::vector<Piece> pieces_;
  std::vector<std::uint64_t> latest_;  // of each bucket
  std::uint64_t pieces_seen_ = 0;
  std::uint64_t found_ = 0;
  std::uint64_t found_tags_ = 0;
};

}  // namespace
