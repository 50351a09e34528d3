// Whatever tags there are, a search among the pairs of their channels ends with numbers, and in passes over the
// stream it comes to what it comes to in lists, unless the tags are said to be too far out of order for that.
//
//   form (1) | piece (1) | reach | list A | list B
//   bit 0 of the form: tags in order of time, else A before B; bits 1 and 2: the channel of B is 1 to 3, or 0 as A
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/support/input.hpp"
#include "fuzz/support/require.hpp"
#include "fuzz/support/time_lists.hpp"
#include "inspect/pair_page.hpp"
#include "inspect/pass_source.hpp"

namespace {

/// The tags, again and again, in pieces.
struct FuzzedStream {
  std::vector<orvo::timing::TimeTag> tags;
  std::size_t piece = 1;
  std::array<orvo::timing::ChannelExtent, orvo::timing::kChannels> extents;

  orvo::timing::ChannelExtent extent(unsigned channel) const { return extents[channel]; }
  template <class Sink>
  void run(Sink& sink) {
    for (std::size_t first = 0; first < tags.size(); first += piece) {
      const std::size_t end = std::min(first + piece, tags.size());
      sink.begin_chunk(end - first);
      for (std::size_t i = first; i < end; ++i) sink.add(tags[i].channel, tags[i].time_ps);
      sink.end_chunk();
    }
  }
};

std::string text_of_pair_search(const std::vector<PairFinding>& findings) {
  std::string text = pair_numbers(findings).dump();
  for (const PairFinding& finding : findings) text += json_of_pair(finding, "c.tagcap").dump();
  return text;
}

std::optional<std::string> searched_in_passes(FuzzedStream& stream, const std::vector<ChannelPair>& pairs,
                                              const PairSearchSettings& settings) {
  try {
    return text_of_pair_search(find_in_passes(stream, pairs, settings));
  } catch (const TooDisordered&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kMostTimes = 2500;  // grids are looked for from 2000 on
  orvo::fuzz::Input input(data, size);
  const std::uint8_t form = input.byte();
  FuzzedStream stream;
  stream.piece = std::size_t{input.byte()} * 16 + 1;
  const PairSearchSettings settings{.reach_ps = input.integer(), .bins = 1024};
  const unsigned b = form >> 1 & 3U;
  for (const unsigned channel : {0U, b}) {
    for (const std::int64_t time_ps : orvo::fuzz::time_list(input, kMostTimes)) {
      stream.tags.emplace_back(channel, time_ps);
      stream.extents[channel].add(time_ps);
    }
  }
  const auto earlier = [](const auto& x, const auto& y) { return x.time_ps < y.time_ps; };
  if ((form & 1) != 0) std::stable_sort(stream.tags.begin(), stream.tags.end(), earlier);

  std::array<std::vector<std::int64_t>, orvo::timing::kChannels> times;
  for (const orvo::timing::TimeTag& tag : stream.tags) times[tag.channel].push_back(tag.time_ps);
  for (auto& list : times) std::sort(list.begin(), list.end());
  const ChannelLists lists{times[0], times[1], times[2], times[3]};

  const std::vector<ChannelPair> pairs{{0, 1}, {b == 0 ? 3 : b, 0}};
  const std::string text = text_of_pair_search(find_in_lists(lists, pairs, settings));
  for (const char* const word : {"nan", "inf"})
    orvo::fuzz::require(text.find(word) == text.npos, "all numbers are numbers");
  const std::optional<std::string> in_passes = searched_in_passes(stream, pairs, settings);
  orvo::fuzz::require(!in_passes || *in_passes == text, "passes come to what lists come to");
  return 0;
}
