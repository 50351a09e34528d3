#include "orvo/timing/tag_encoder.hpp"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "support/encoded.hpp"
#include "support/failure.hpp"

namespace {

using namespace orvo::test;
using orvo::timing::StreamFormat;
using orvo::timing::TagEncoder;

TEST(TagEncoder, EncodesAsTheHeaderSays) {
  for (const StreamFormat format : {StreamFormat::raw64, StreamFormat::delta32, StreamFormat::packed_delta}) {
    orvo::timing::StreamFileHeader header;
    header.stream_format = format;
    const Tags tags = tags_in_turn(1, 100, 0, 10'000, 3);
    EXPECT_EQ(decoded_again(header, tags), tags);
  }
  orvo::timing::StreamFileHeader unknown;
  unknown.stream_format = static_cast<StreamFormat>(3);
  EXPECT_EQ(failure_of([&] { TagEncoder{unknown}; }), "TagEncoder: unknown stream format (code -1)");
}

TEST(TagEncoder, MakesNoPayloadOfNoTags) {
  EXPECT_EQ(encoded(raw64_header(), {}), Bytes{});
  EXPECT_EQ(encoded(delta32_header(), {}), Bytes{});
  EXPECT_EQ(encoded(packed_header({}), {}), Bytes{});
}

/// Times as they occur and as nobody would think of: starts and steps beside every limit of the encodings, of any
/// size, up to the end of 64 bits; now and then late, equal, or off the grid.
class AnyTags {
 public:
  AnyTags(std::uint64_t seed, unsigned shift) : random_(seed), shift_(shift) {
    channels_ = 1 + random_.below(4);
    longest_step_ = random_.below(45);
    odd_ = random_.below(3) == 0 ? 3 + random_.below(200) : 0;
    const std::uint64_t starts[] = {0,
                                    5,
                                    kLap - 1'000,
                                    kPeriod - 1'000,
                                    8 * kLap - 1'000,
                                    3 * kPeriod,
                                    (random_.bits() >> 2) >> random_.below(50)};
    time_ = starts[random_.below(std::size(starts))] >> shift_ << shift_;
  }

  std::uint64_t channels() const { return channels_; }

  orvo::timing::TimeTag next() {
    const bool odd = odd_ != 0 && random_.below(odd_) == 0;
    step(odd);
    std::uint64_t time = time_;
    if (random_.below(20) == 0) time -= (random_.below(1'200'000) >> random_.below(20)) >> shift_ << shift_;  // late
    if (odd && random_.below(4) == 0) time += random_.bits() >> random_.below(64);
    const auto channel =
        static_cast<unsigned>(odd && random_.below(8) == 0 ? random_.below(6) : random_.below(channels_));
    return tag(channel, static_cast<std::int64_t>(time));
  }

 private:
  static constexpr std::uint64_t kPeriod = 14'315'125'997'568;
  static constexpr std::uint64_t kLap = std::uint64_t{1} << 41;
  static constexpr std::uint64_t kStep = 1'078'036'791'296;

  void step(bool odd) {
    std::uint64_t step = random_.bits() >> (63 - random_.below(longest_step_ + 1));
    if (random_.below(10) == 0) step = 0;
    if (odd) {
      const std::uint64_t steps[] = {kStep,
                                     kStep + 10'000'000'000,
                                     kLap,
                                     kLap - 1'000'000,
                                     kLap / 2,
                                     kPeriod / 2,
                                     kPeriod,
                                     kPeriod - time_ % kPeriod,
                                     1'000'000'000'000,
                                     (8 * kLap) - kPeriod,
                                     kStep + kPeriod - time_ % kPeriod,
                                     std::uint64_t{1} << 25};
      step = steps[random_.below(std::size(steps))] + random_.below(5) - 2;
    }
    time_ += step >> shift_ << shift_;
  }

  Random random_;
  unsigned shift_;
  std::uint64_t channels_ = 1;
  std::uint64_t longest_step_ = 0;
  std::uint64_t odd_ = 0;  // one step in so many is strange; 0 = none
  std::uint64_t time_ = 0;
};

struct Outcome {
  std::uint64_t captures = 0;
  std::uint64_t tags = 0;
  std::uint64_t refused_tags = 0;
  std::uint64_t not_aligned = 0;
};

/// Whether decoders find the start of a packed capture of less than 64 KiB, by the channels that click.
bool can_be_aligned(const orvo::timing::StreamFileHeader& header, const Tags& tags) {
  std::array<std::size_t, 4> counts{};
  for (const auto& tag : tags) ++counts[tag.channel];
  std::size_t active = 0, seen = 0, least = tags.size(), most = 0;
  for (unsigned c = 0; c < 4; ++c) {
    if ((header.channel_mask >> c & 1) == 0) continue;
    ++active;
    seen += counts[c] != 0;
    least = std::min(least, counts[c]);
    most = std::max(most, counts[c]);
  }
  if (header.mode == orvo::timing::StreamMode::external) return seen >= std::min<std::size_t>(active, 2);
  return seen == active && (active == 1 || 2 * least >= most);
}

/// Encodes tags one by one, leaves out what is refused, and expects the others to decode again.
void try_any_tags(const orvo::timing::StreamFileHeader& header, unsigned shift, std::uint64_t seed,
                  Outcome& outcome) {
  Random random(seed);
  const std::uint64_t anchors[] = {1, 2, 5, 100, 1'000'000};
  TagEncoder encoder(header, {.anchor_every = anchors[random.below(std::size(anchors))],
                              .start_bit = static_cast<unsigned>(random.below(8))});
  AnyTags source(seed, shift);
  orvo::timing::ByteQueue payload;
  Tags accepted;
  const std::uint64_t count = 1 + random.below(400);
  for (std::uint64_t i = 0; i < count; ++i) {
    const auto tag = source.next();
    try {
      encoder.encode({&tag, 1}, payload);
      accepted.push_back(tag);
    } catch (const orvo::timing::Error& error) {
      if (payload.size() >= 65'536 && std::string(error.what()).starts_with("decoders would not align")) {
        ++outcome.not_aligned;
        return;
      }
      const std::string place =
          "channel " + std::to_string(tag.channel) + " at " + std::to_string(tag.time_ps) + " ps: ";
      ASSERT_NE(std::string(error.what()).find(place), std::string::npos) << error.what();
      ++outcome.refused_tags;
    }
  }
  try {
    encoder.finish(payload);
  } catch (const orvo::timing::Error& error) {
    ASSERT_TRUE(std::string(error.what()).starts_with("decoders would not align")) << error.what();
    EXPECT_FALSE(can_be_aligned(header, accepted));
    ++outcome.not_aligned;
    return;
  }
  if (header.stream_format == StreamFormat::packed_delta && payload.size() < 65'536) {
    EXPECT_TRUE(accepted.empty() || can_be_aligned(header, accepted));
  }
  for (auto& tag : accepted) tag.time_ps += encoder.axis_ps(tag.channel);
  expect_same(decoded(header, Bytes(payload.begin(), payload.end())), accepted);
  for (const auto& tag : accepted) ASSERT_EQ(encoder.axis_ps(tag.channel), encoder.axis_ps(accepted.front().channel));
  ++outcome.captures;
  outcome.tags += accepted.size();
}

TEST(TagEncoder, DecodesToWhateverItDoesNotRefuseInRaw64) {
  Outcome outcome;
  for (std::uint64_t seed = 0; seed < rounds(400) && !HasFatalFailure() && !HasNonfatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    try_any_tags(raw64_header(seed % 2 == 0 ? "ps" : "raw_cf"), 0, seed, outcome);
  }
  EXPECT_EQ(outcome.not_aligned, 0u);
  EXPECT_GT(outcome.tags, rounds(20'000));
  EXPECT_GT(outcome.refused_tags, rounds(5'000));
}

TEST(TagEncoder, DecodesToWhateverItDoesNotRefuseInDelta32) {
  Outcome outcome;
  for (std::uint64_t seed = 0; seed < rounds(400) && !HasFatalFailure() && !HasNonfatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    try_any_tags(delta32_header(), 0, seed, outcome);
  }
  EXPECT_EQ(outcome.not_aligned, 0u);
  EXPECT_GT(outcome.tags, rounds(40'000));
  EXPECT_GT(outcome.refused_tags, rounds(500));
}

TEST(TagEncoder, DecodesToWhateverItDoesNotRefuseInPackedDelta) {
  Outcome outcome;
  for (std::uint64_t seed = 0; seed < rounds(1'600) && !HasFatalFailure() && !HasNonfatalFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    PackedForm form;
    form.delta_bits = static_cast<unsigned>(1 + random.below(31));
    const auto shift = static_cast<unsigned>(random.below(2) == 0 ? 0 : random.below(16));
    form.quantum_ps = 1u << shift;
    form.channel_mask = random.below(3) == 0 ? 15u : (1u << AnyTags(seed, shift).channels()) - 1;
    form.mode = random.below(2) == 0 ? orvo::timing::StreamMode::internal : orvo::timing::StreamMode::external;
    try_any_tags(packed_header(form), shift, seed, outcome);
  }
  EXPECT_GT(outcome.captures, rounds(800));
  EXPECT_GT(outcome.tags, rounds(100'000));
  EXPECT_GT(outcome.refused_tags, rounds(500));
}

}  // namespace
