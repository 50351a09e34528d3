#include "simulate/ground_truth.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

namespace {

using orvo::timing::TimeTag;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// 9900 pairs and 90,000 tags of each channel in a second, those of a pair 40 ps about each other.
Settings one_second() {
  Settings settings;
  settings.out = "c.tagcap";
  settings.duration_ps = 1'000'000'000'000;
  settings.pairs = {
      .channel_a = 0, .channel_b = 2, .rate_hz = 9900, .delay_ps = 0, .jitter_ps = 40, .range_ps = 5000};
  for (const unsigned c : {0u, 2u}) {
    settings.channels[c].active = true;
    settings.channels[c].rate_hz = 90'000;
  }
  return settings;
}

StoredCapture stored_capture() {
  StoredCapture stored;
  stored.channels[0] = {.tags = 100'000, .first_ps = 100, .axis_ps = -100};
  stored.channels[2] = {.tags = 100'000, .first_ps = 150, .axis_ps = -300};
  stored.tags = 200'000;
  stored.first = {0, 100};
  stored.last_ps = 999'999'999'000;
  // A mean of 2 ps, and 50 ps about it.
  stored.coincidences = {.count = 10'000, .difference_ps = 20'000, .square_ps2 = 25'040'000};
  return stored;
}

std::string correlation_of(const Settings& settings) {
  std::ostringstream out;
  print_correlation(out, settings, stored_capture(), 1);
  return out.str();
}

TEST(GroundTruth, NamesTheCaptureItsTagsAndTheAxesThatAreNot0) {
  StoredCapture stored = stored_capture();
  stored.channels[0].axis_ps = 0;
  std::ostringstream out;
  print_contents(out, one_second(), stored);
  EXPECT_EQ(out.str(),
            "capture=c.tagcap\ntags=200000\nch0=100000\nch1=0\nch2=100000\nch3=0\nfirst_ps=100\n"
            "last_ps=999999999000\nch2_axis_ps=-300\n");
}

// 100,000 times 100,000 tags in 10^12 ps give 10^10 / 10^12 accidental pairs for each of 10,001 ps.
TEST(GroundTruth, OfACorrelationIsTheseLines) {
  EXPECT_EQ(correlation_of(one_second()),
            "channel_a=0\nchannel_b=2\noffset_ps=-200\nrange_ps=5000\ncoincidences=10000\n"
            "coincidences_error=100.000\nexpected_coincidences=10000.010\nexpected_accidentals=100.010\n"
            "mean_ps=2.000\nmean_error_ps=2.914\nrms_ps=50.000\nexpected_rms_ps=291.420\nrms_error_ps=19.128\n"
            "fwhm_ps=117.741\npair_sigma_ps=40.002\npair_fwhm_ps=94.198\n"
            "expected_verdict=peak\nexpected_pairs=9900\nexpected_share_a=0.0991\nexpected_share_b=0.0991\n"
            "expected_background_per_ps=0.00998\nexpected_g2=8015\n"
            "verify=vq_verify_stream_file_xcorr c.tagcap 0 2 --offset=-200 --range=5000\n");
}

TEST(GroundTruth, AsksForAVerificationOfItsChannelsDelayAndRange) {
  Settings settings = one_second();
  settings.pairs.delay_ps = -70;
  settings.pairs.range_ps = 3000;
  EXPECT_THAT(correlation_of(settings),
              HasSubstr("\nverify=vq_verify_stream_file_xcorr c.tagcap 0 2 --offset=-270 --range=3000\n"));
}

TEST(GroundTruth, WithDeadTimeExpectsNoNumberOfCoincidencesAndNoPeak) {
  Settings settings = one_second();
  settings.channels[2].dead_time_ps = 1;
  EXPECT_THAT(correlation_of(settings),
              AllOf(HasSubstr("\nexpected_accidentals=100.010\n"), HasSubstr("\npair_fwhm_ps=94.198\nverify="),
                    Not(HasSubstr("expected_coincidences"))));
}

TEST(GroundTruth, WithLightExpectsNoNumberOfCoincidences) {
  Settings settings = one_second();
  settings.light.kind = Light::emitter;
  EXPECT_THAT(correlation_of(settings),
              AllOf(HasSubstr("\nexpected_verdict=peak\n"), Not(HasSubstr("expected_coincidences"))));
}

TEST(GroundTruth, OfACaptureWithoutDurationIsAsLongAsItsTags) {
  Settings settings = one_second();
  settings.duration_ps.reset();
  settings.start_ps = 499'999'999'000;  // half a second before the last tag
  EXPECT_THAT(correlation_of(settings), HasSubstr("\nexpected_accidentals=200.020\n"));
}

TEST(GroundTruth, OfDamageIsWhatWasDone) {
  Settings settings = one_second();
  const auto told = [&settings](std::size_t payload_bytes) {
    Damage damage(settings);
    const std::vector<std::uint8_t> payload(payload_bytes);
    damage.pass(payload, [](const void*, std::size_t) {});
    std::ostringstream out;
    print_damage(out, settings, damage);
    return out.str();
  };
  EXPECT_EQ(told(2000), "");
  settings.damage = {.front_garbage_bytes = 20, .garbage_bytes = 30, .garbage_at = 1000, .cut_tail_bytes = 5};
  EXPECT_EQ(told(1001), "front_garbage_bytes=20\ngarbage_bytes=30\nflipped_bits=0\ncut_tail_bytes=5\n");
  EXPECT_EQ(told(1000), "front_garbage_bytes=20\ngarbage_bytes=0\nflipped_bits=0\ncut_tail_bytes=5\n");
  settings.damage = {.flip_every_bytes = 100};
  EXPECT_EQ(told(1000), "front_garbage_bytes=0\ngarbage_bytes=0\nflipped_bits=10\ncut_tail_bytes=0\n");
}

TEST(StoredCapture, AddsUpItsBlocks) {
  StoredCapture stored;
  stored.add(std::vector<TimeTag>{{2, 100}, {0, 150}, {2, 170}});
  stored.add(std::vector<TimeTag>{});
  stored.add(std::vector<TimeTag>{{1, 200}, {2, 230}});
  EXPECT_EQ(stored.tags, 5u);
  EXPECT_EQ(stored.first, (TimeTag{2, 100}));
  EXPECT_EQ(stored.last_ps, 230);
  EXPECT_EQ(stored.channels[0].tags, 1u);
  EXPECT_EQ(stored.channels[1].tags, 1u);
  EXPECT_EQ(stored.channels[2].tags, 3u);
  EXPECT_EQ(stored.channels[1].first_ps, 200);
  EXPECT_EQ(stored.channels[2].first_ps, 100);
}

}  // namespace
