// Rules of findings about header, payload and dates, each on both sides of its threshold.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/delta32_payload.hpp"
#include "support/hostile_captures.hpp"
#include "support/inspect_thresholds.hpp"
#include "support/packed_payload.hpp"

namespace {

using namespace orvo::test;

class PayloadThresholds : public Thresholds {};

TEST_F(PayloadThresholds, HeaderValues) {
  const Bytes payload = raw64_payload(steady(10));
  const std::string sound = made_header("raw64", 1);
  EXPECT_FALSE(finds("S header_value", sound, payload));
  const auto with = [&](const std::string& what, const std::string& by) {
    std::string text = sound;
    return text.replace(text.find(what), what.size(), by);
  };
  for (const auto& [what, by] : std::vector<std::pair<std::string, std::string>>{
           {"\"channel_mask\":1", "\"channel_mask\":16"},
           {"\"channel_mask\":1", "\"channel_mask\":\"1\""},
           {"\"delta_bits\":16", "\"delta_bits\":0"},
           {"\"delta_bits\":16", "\"delta_bits\":32"},
           {"\"quantum_ps\":8", "\"quantum_ps\":0"},
           {"\"quantum_ps\":8", "\"quantum_ps\":65536"},
           {"\"quantum_ps\":8", "\"quantum_ps\":8.5"},
           {"\"tdl_index\":0", "\"tdl_index\":256"},
           {"\"tdl_index\":0", "\"tdl_index\":-1"},
           {"\"raw64\"", "\"raw-64\""},
           {"\"external\"", "\"outside\""},
           {"\"usb\"", "\"pci\""},
           {"\"application\":\"a\"", "\"application\":5"},
           {"\"application\":\"a\"", "\"application\":\"device_port\""},
           {"\"mode\":\"external\"", "\"mode\":\"external\",\"mode\":\"external\""},
           {"\"schema_version\":1", "\"schema_version\":2"},
           {"\"device_port\":\"d\"", "\"device_port\":\"\\u0041\""},
       }) {
    EXPECT_TRUE(finds("S header_value", with(what, by), payload)) << by;
  }
  for (const auto& [what, by] : std::vector<std::pair<std::string, std::string>>{
           {"\"channel_mask\":1", "\"channel_mask\":15"},
           {"\"delta_bits\":16", "\"delta_bits\":31"},
           {"\"delta_bits\":16", "\"delta_bits\":1"},
           {"\"quantum_ps\":8", "\"quantum_ps\":65535"},
           {"\"tdl_index\":0", "\"tdl_index\":255"},
           {"\"raw64\"", "\"RAW64\""},
           {"\"usb\"", "\"usb-async\""},
           {"\"ps\"", "\"\""},
       }) {
    EXPECT_FALSE(finds("S header_value", with(what, by), payload)) << by;
  }
}

TEST_F(PayloadThresholds, HeaderTexts) {
  const Bytes payload = raw64_payload(steady(10));
  const std::string sound = made_header("raw64", 1);
  constexpr std::size_t kMost = std::size_t{1} << 20;
  EXPECT_FALSE(finds("S header_not_json", sound + std::string(kMost - sound.size(), ' '), payload));
  EXPECT_TRUE(finds("S header_not_json", sound + std::string(kMost - sound.size() + 1, ' '), payload));
  EXPECT_TRUE(finds("S header_not_json", sound + ",", payload));
  EXPECT_TRUE(finds("S header_not_json", "[" + sound + "]", payload));
  EXPECT_TRUE(finds("S header_not_json", sound.substr(0, sound.size() - 1), payload));
  EXPECT_TRUE(finds("S header_not_json", "", payload));
}

TEST_F(PayloadThresholds, PackedRecordsThatNobodyCanDecode) {
  EXPECT_FALSE(finds("B header_value", made_header("packed_delta", 3, 31), Bytes(5'000, 0)));
  EXPECT_TRUE(finds("B header_value", made_header("packed_delta", 3, 32), Bytes(5'000, 0)));
  EXPECT_EQ(report().at("payload").at("classes").back().at("bits"), 40'000);
}

TEST_F(PayloadThresholds, HeaderFields) {
  const Bytes payload = raw64_payload(steady(10));
  std::string text = made_header("raw64", 1);
  EXPECT_FALSE(finds("N header_fields", text, payload));
  EXPECT_TRUE(finds("N header_fields", "{\"x\":1," + text.substr(1), payload));
  EXPECT_TRUE(finds("N header_fields", text.replace(text.find("\"tdl_index\":0,"), 14, ""), payload));
  std::string packed = made_header("packed_delta");
  EXPECT_TRUE(finds("N header_fields", packed.replace(packed.find("\"quantum_ps\":8"), 14, "\"quantum_ps\":12"), {}));
}

TEST_F(PayloadThresholds, EmptyAndShortPayloads) {
  EXPECT_TRUE(finds("S empty", made_header(), {}));
  EXPECT_FALSE(finds("S empty", made_header(), {0}));
  EXPECT_TRUE(finds("N nothing_decodes", made_header("packed_delta"), Bytes(4'095, 0)));
  EXPECT_TRUE(finds("B nothing_decodes", made_header("packed_delta"), Bytes(4'096, 0)));
  EXPECT_TRUE(finds("B nothing_decodes", made_header("delta32"), Bytes(4, 0)));
}

// The start of the payload is raw64, the rest and the header are delta32.
TEST_F(PayloadThresholds, OtherEncodings) {
  const auto capture = [](std::size_t foreign_records, std::size_t own_words) {
    Bytes words = d32_base(1'000);
    while (words.size() < 4 * own_words) words += d32_event(0, 50'000);
    words.resize(4 * own_words);
    return raw64_payload(steady(foreign_records, 1'000)) + words;
  };
  const std::string header = made_header("delta32", 1);
  EXPECT_FALSE(finds("B other_encoding", header, capture(10'000, 20'000)));
  EXPECT_TRUE(finds("B other_encoding", header, capture(10'000, 19'999)));
  // Without any tag the share does not matter; what matters is how well the other encoding reads.
  EXPECT_FALSE(finds("B other_encoding", header, raw64_payload(steady(15))));
  EXPECT_TRUE(finds("B other_encoding", header, raw64_payload(steady(16))));
  EXPECT_TRUE(finds("B other_encoding", header, raw64_payload(steady(90)) + Bytes(80, 0xFF)));
  EXPECT_FALSE(finds("B other_encoding", header, raw64_payload(steady(89)) + Bytes(80, 0xFF)));
  const auto standing = [](std::size_t equal_steps) {
    Tags tags = steady(101);
    for (std::size_t i = 1; i <= equal_steps; ++i) tags[i].time_ps = tags[0].time_ps;
    return raw64_payload(tags);
  };
  EXPECT_TRUE(finds("B other_encoding", header, standing(10)));
  EXPECT_FALSE(finds("B other_encoding", header, standing(11)));
}

// Packed records under a header that says raw64: of so many in a hundred data, the others overflow records.
TEST_F(PayloadThresholds, OtherEncodingsThatArePacked) {
  // So many sync sequences that break off stand before the records: no lock reaches over them. Amid them anchors go
  // back or not, which costs a lock that was found.
  const auto capture = [](unsigned data_percent, unsigned breaks_before = 0, bool break_amid = false) {
    PackedWriter writer(16);
    for (unsigned i = 0; i < breaks_before; ++i) writer.sync_start(0).overflow(0, 1);
    writer.anchor(0, 1'000).anchor(1, 1'000);
    for (unsigned i = 0; i < 10'000; ++i) {
      if (i == 9'000 && break_amid) lose_lock(writer);
      if (i % 100 < data_percent) {
        writer.data(i % 2, 500 + i * i % 7);
      } else {
        writer.overflow(i % 2, 1);
      }
    }
    return writer.bytes();
  };
  const std::string header = made_header("raw64", 3);
  EXPECT_TRUE(finds("B other_encoding", header, capture(100)));
  EXPECT_TRUE(finds("B other_encoding", header, capture(31)));
  EXPECT_FALSE(finds("B other_encoding", header, capture(29)));
  EXPECT_FALSE(finds("B other_encoding", header, capture(100, 0, true)));
  // 1110 records before 10010 are less than a tenth of all, 1120 are more.
  EXPECT_TRUE(finds("B other_encoding", header, capture(100, 555)));
  EXPECT_FALSE(finds("B other_encoding", header, capture(100, 560)));
}

TEST_F(PayloadThresholds, LeadIn) {
  const Bytes records = raw64_payload(steady(10));
  EXPECT_FALSE(finds("N lead_in", made_header("raw64", 1), records));
  EXPECT_TRUE(finds("N lead_in", made_header("raw64", 1), Bytes(7, 0xFF) + records));
  EXPECT_TRUE(finds("S lead_in", made_header("raw64", 1), Bytes(8, 0xFF) + records));
  const Bytes words = d32_base(1'000) + d32_event(0, 0);
  EXPECT_TRUE(finds("N lead_in", made_header("delta32", 1), Bytes(65'600, 0) + words));
  EXPECT_TRUE(finds("S lead_in", made_header("delta32", 1), Bytes(65'601, 0) + words));
  EXPECT_TRUE(finds("N lead_in", made_header("delta32", 1), words + d32_event(1, 1)));
}

TEST_F(PayloadThresholds, BytesLost) {
  const Bytes records = raw64_payload(steady(99));
  const std::string header = made_header("raw64", 1);
  EXPECT_FALSE(finds("S bytes_lost", header, records));
  EXPECT_FALSE(finds("S bytes_lost", header, Bytes(7, 0xFF) + records));
  EXPECT_TRUE(finds("S bytes_lost", header, records + Bytes(1, 0xFF) + records));
  // 16 of 1600 bytes, and of 1608.
  EXPECT_TRUE(finds("B bytes_lost", header, records + Bytes(16, 0xFF) + records));
  EXPECT_TRUE(finds("S bytes_lost", header, records + Bytes(16, 0xFF) + raw64_payload(steady(100))));
}

TEST_F(PayloadThresholds, SyncLost) {
  const auto capture = [](int breaks, std::size_t bytes) {
    Bytes payload = d32_base(1'000) + d32_event(0, 0);
    for (int i = 1; i <= breaks; ++i) {
      payload += Bytes(4, 0) + d32_base(1'000 + 100'000u * static_cast<unsigned>(i)) + d32_event(0, 0);
    }
    const Bytes events = repeated(d32_event(0, 3))();
    while (payload.size() + events.size() <= bytes) payload += events;
    while (payload.size() < bytes) payload += d32_event(0, 3);
    return payload;
  };
  EXPECT_FALSE(finds("S sync_lost", made_header("delta32", 1), capture(0, 0)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(1, 0)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(9, 0)));
  EXPECT_TRUE(finds("B sync_lost", made_header("delta32", 1), capture(10, 0)));
  EXPECT_TRUE(finds("B sync_lost", made_header("delta32", 1), capture(10, 10'485'000)));
  EXPECT_TRUE(finds("S sync_lost", made_header("delta32", 1), capture(10, 10'486'000)));
}

// A lock that is lost at the start of each read, which is 1 MiB.
TEST_F(PayloadThresholds, LockLost) {
  const auto capture = [](std::size_t reads) {
    const Bytes unit = packed_records(16, lose_lock);
    Bytes payload;
    while (payload.size() < reads << 20) payload += unit;
    payload.resize(reads << 20);
    return payload;
  };
  const std::string header = made_header("packed_delta");
  PackedWriter sound(16);
  sound.anchor(0, 1'000).anchor(1, 1'000);
  for (int i = 0; i < 8'000; ++i) sound.data(static_cast<unsigned>(i % 2), 500 + static_cast<unsigned>(i * i % 7));
  EXPECT_FALSE(finds("S lock_lost", header, sound.bytes()));
  EXPECT_TRUE(finds("S lock_lost", header, capture(1)));
  EXPECT_TRUE(finds("S lock_lost", header, capture(9)));
  EXPECT_TRUE(finds("B lock_lost", header, capture(10)));
}

TEST_F(PayloadThresholds, CutRecords) {
  const Bytes payload = raw64_payload(steady(10));
  EXPECT_FALSE(finds("S cut_record", made_header("raw64", 1), payload));
  EXPECT_TRUE(finds("S cut_record", made_header("raw64", 1), payload + Bytes(1, 0)));
  EXPECT_TRUE(finds("S cut_record", made_header("raw64", 1), payload + Bytes(7, 0)));
  EXPECT_FALSE(finds("S cut_record", made_header("raw64", 1), payload + Bytes(1, 0xFF) + payload + Bytes(8, 0xFF)));
  const Bytes words = d32_base(1'000) + d32_event(0, 0);
  EXPECT_FALSE(finds("S cut_record", made_header("delta32", 1), words));
  EXPECT_TRUE(finds("S cut_record", made_header("delta32", 1), words + Bytes(1, 0)));
}

TEST_F(PayloadThresholds, OverflowShare) {
  // Of 8000 records, which fill 19000 bytes, 10 are anchors.
  const auto capture = [](int overflows) {
    PackedWriter writer(16);
    writer.anchor(0, 1'000).anchor(1, 1'000);
    for (int i = 0; writer.records() < 8'000; ++i) {
      if (i % 3 == 0 && i / 3 < overflows) writer.overflow(0, 1);
      if (writer.records() < 8'000) writer.data(static_cast<unsigned>(i % 2), 500 + static_cast<unsigned>(i * i % 7));
    }
    return writer.bytes();
  };
  EXPECT_EQ(capture(1'600).size(), 19'000u);
  EXPECT_FALSE(finds("N overflow_share", made_header("packed_delta"), capture(1'600)));
  EXPECT_TRUE(finds("N overflow_share", made_header("packed_delta"), capture(1'601)));
}

TEST_F(PayloadThresholds, Imbalance) {
  const auto capture = [](std::uint64_t first, std::uint64_t second) {
    Tags tags;
    for (std::uint64_t i = 0; i < first; ++i) tags.push_back({0, i * 1'000'000});
    for (std::uint64_t i = 0; i < second; ++i) tags.push_back({1, i * 2'000'000 + 3});
    return raw64_payload(merged(tags, {}));
  };
  const std::string internal = made_header("raw64", 3, 16, "internal");
  EXPECT_TRUE(finds("N imbalance", internal, capture(2'731, 1'365)));
  EXPECT_FALSE(finds("N imbalance", internal, capture(2'730, 1'365)));
  EXPECT_FALSE(finds("N imbalance", internal, capture(2'732, 1'366)));
  EXPECT_FALSE(finds("N imbalance", made_header("raw64", 3), capture(2'731, 1'365)));
  // Packed: evenly for as long as the alignment looks, then channel 0 alone. The anchors are a tag each.
  const auto packed = [](std::uint64_t first) {
    PackedWriter writer(16);
    writer.anchor(0, 1'000).anchor(1, 1'000);
    for (std::uint64_t i = 1; i < 20'001; ++i) writer.data(0, 500 + i * i % 7).data(1, 500 + i * i % 5);
    for (std::uint64_t i = 20'001; i < first; ++i) writer.data(0, 500 + i * i % 7);
    return writer.bytes();
  };
  const std::string packed_internal = made_header("packed_delta", 3, 16, "internal");
  EXPECT_FALSE(finds("S imbalance", packed_internal, packed(40'002)));
  EXPECT_TRUE(finds("S imbalance", packed_internal, packed(40'003)));
}

TEST_F(PayloadThresholds, Dates) {
  // The header says when the recording began; the file was last written to some seconds later.
  const auto capture = [this](int seconds, std::uint64_t duration_ps) {
    std::string text = made_header("raw64", 1);
    text.replace(text.find("1970-01-01T00:00:00"), 19, "2026-01-01T00:00:00");
    Tags tags = steady(100);
    tags.push_back({0, duration_ps});
    write(text, raw64_payload(tags));
    const std::string touch = "touch -d '2026-01-01 00:00:00 UTC + " + std::to_string(seconds) + " seconds' ";
    EXPECT_EQ(std::system((touch + path().string()).c_str()), 0);
    return all_codes().count("N shorter_than_dates") != 0;
  };
  EXPECT_FALSE(capture(11, 1'000'000'000'000));
  EXPECT_TRUE(capture(12, 1'000'000'000'000));
  EXPECT_FALSE(capture(24, 12'000'000'000'000));
  EXPECT_TRUE(capture(25, 12'000'000'000'000));
  EXPECT_TRUE(capture(86'400, 1'000'000'000'000));
  EXPECT_FALSE(capture(86'401, 1'000'000'000'000));
}

}  // namespace
