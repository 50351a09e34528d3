// Accounting of a payload: every byte in one class, every loss reported when it ends.
#include "orvo/timing/payload_account.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "orvo/timing/stream_decoder.hpp"
#include "support/delta32_payload.hpp"
#include "support/packed_payload.hpp"
#include "support/stream_feeding.hpp"

namespace {

using namespace orvo::test;
using namespace orvo::timing;
using testing::ElementsAre;

/// Keeps what it is told.
struct ToldLosses : NoLossListener {
  void lost(const PayloadLoss& loss) { all.push_back(loss); }
  void true_again(unsigned channel) { channels.push_back(channel); }
  std::vector<PayloadLoss> all;
  std::vector<unsigned> channels;
};

/// A payload decoded under an account.
class Accounted {
 public:
  explicit Accounted(const StreamFileHeader& header) : decoder(header), account(decoder.header, told) {}

  Accounted& feed(const Bytes& chunk) {
    decoder.pending_bytes.append(chunk.data(), chunk.size());
    TagList list(tags);
    detail::decode_pending(decoder, list, account);
    return *this;
  }
  Accounted& finish() {
    account.finish(decoder);
    return *this;
  }
  std::uint64_t operator[](PayloadClass what) const { return account.size(what); }
  std::uint64_t pending() const { return account.pending(decoder); }

  StreamDecoder decoder;
  ToldLosses told;
  PayloadAccount<ToldLosses> account;
  std::vector<TimeTag> tags;
};

StreamFileHeader header_of(StreamFormat format) {
  StreamFileHeader header;
  header.stream_format = format;
  return header;
}

Accounted raw64() {
  return Accounted(header_of(StreamFormat::raw64));
}

Accounted delta32() {
  return Accounted(header_of(StreamFormat::delta32));
}

const Bytes kStray = bytes({0xFF, 0xFE, 0xFD});

TEST(PayloadAccount, CountsRecordsAndWhatLiesBetweenThem) {
  Accounted capture = raw64();
  capture.feed(ps_record(0, 10) + kStray + ps_record(2, 20) + ps_record(2, 30) + bytes({0, 0}));
  EXPECT_EQ(capture[PayloadClass::records], 24u);
  EXPECT_EQ(capture[PayloadClass::skipped], 3u);
  EXPECT_EQ(capture.pending(), 2u);
  EXPECT_EQ(capture.account.tags(0), 1u);
  EXPECT_EQ(capture.account.tags(2), 2u);
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::foreign, 8, 3}));
  EXPECT_EQ(capture.account.lost(), (LossTally{1, 3}));
  EXPECT_EQ(capture.account.framings_won(), 1u) << "foreign bytes end no search";
  capture.finish();
  EXPECT_THAT(capture.told.all,
              ElementsAre(PayloadLoss{LossReason::foreign, 8, 3}, PayloadLoss{LossReason::cut, 27, 2}));
  EXPECT_EQ(capture.account.lost(), (LossTally{1, 3}));
}

TEST(PayloadAccount, WhatIsBeforeTheFirstRecordIsALeadAndNoLossOfASoundCapture) {
  Accounted capture = raw64();
  capture.feed(kStray + ps_record(0, 10)).finish();
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 3}));
  EXPECT_EQ(capture.account.lost(), LossTally{});
}

TEST(PayloadAccount, ALossThatIsOpenAtTheEndRunsToTheEnd) {
  Accounted none = raw64();
  none.feed(Bytes(20, 0xFF)).finish();
  EXPECT_THAT(none.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 20}));
  Accounted open = raw64();
  open.feed(ps_record(0, 10) + Bytes(10, 0xFF)).finish();
  EXPECT_THAT(open.told.all, ElementsAre(PayloadLoss{LossReason::foreign, 8, 10}));
  EXPECT_EQ(open[PayloadClass::skipped], 3u);
  EXPECT_EQ(open.pending(), 7u);
  Accounted empty = raw64();
  empty.finish();
  EXPECT_TRUE(empty.told.all.empty());
}

TEST(PayloadAccount, CountsTheWrapsOfAChannel) {
  Accounted capture = raw64();
  capture.feed(ps_record(1, 14'000'000'000'000) + ps_record(0, 14'000'000'000'000) + ps_record(1, 5));
  EXPECT_EQ(capture.account.wraps(0), 0u);
  EXPECT_EQ(capture.account.wraps(1), 1u);
}

TEST(PayloadAccount, CountsDelta32WordsByWhatTheyWere) {
  Accounted capture = delta32();
  const Bytes marker = d32_word({.control = 1, .channel = 3, .type = 5, .payload = 1});
  capture.feed(bytes({1, 2}) + d32_base(1'000) + d32_event(0, 5) + marker + d32_extension(1) + d32_event(0, 7) +
               d32_event(3, 7) + bytes({9}));
  EXPECT_EQ(capture[PayloadClass::searched], 2u);
  EXPECT_EQ(capture[PayloadClass::sync_words], 4u);
  EXPECT_EQ(capture[PayloadClass::time_bases], 8u);
  EXPECT_EQ(capture[PayloadClass::markers], 4u);
  EXPECT_EQ(capture[PayloadClass::extensions], 4u);
  EXPECT_EQ(capture[PayloadClass::events], 8u);
  EXPECT_EQ(capture[PayloadClass::events_without_time], 4u);
  EXPECT_EQ(capture.pending(), 1u);
  capture.finish();
  EXPECT_THAT(capture.told.all,
              ElementsAre(PayloadLoss{LossReason::lead, 0, 2}, PayloadLoss{LossReason::no_time, 30, 4},
                          PayloadLoss{LossReason::cut, 34, 1}));
  EXPECT_EQ(capture.account.untimed_at_start(), 4u);
  EXPECT_EQ(capture.account.lost(), LossTally{});
}

/// A frame with one event, a word that costs the sync, garbage, and another frame.
std::vector<PayloadLoss> losses_of(const Bytes& frame, const Bytes& breaking) {
  Accounted capture = delta32();
  capture.feed(frame + breaking + bytes({1, 2, 3, 4, 5}) + d32_base(9'000) + d32_event(0, 0)).finish();
  EXPECT_EQ(capture.account.framings_lost(), 1u);
  EXPECT_EQ(capture.account.framings_won(), 2u);
  EXPECT_EQ(capture[PayloadClass::broken_words], 4u);
  EXPECT_EQ(capture[PayloadClass::searched], 5u);
  return capture.told.all;
}

TEST(PayloadAccount, NamesEachReasonForALossOfSync) {
  const Bytes frame = d32_base(1'000) + d32_event(0, 0);
  const auto loss = [](LossReason reason, std::uint64_t position) {
    return ElementsAre(PayloadLoss{reason, position, 9});
  };
  EXPECT_THAT(losses_of(frame + d32_sync(), d32_event(0, 1)), loss(LossReason::no_base_low, 20));
  EXPECT_THAT(losses_of(frame + d32_sync() + d32_base_low(1), d32_event(0, 1)), loss(LossReason::no_base_high, 24));
  EXPECT_THAT(losses_of(frame + d32_base(2'000), d32_extension(1)), loss(LossReason::extension_after_base, 28));
  EXPECT_THAT(losses_of(frame, d32_base_low(1)), loss(LossReason::stray_base, 16));
  EXPECT_THAT(losses_of(frame, d32_base_high(1)), loss(LossReason::stray_base, 16));
  EXPECT_THAT(losses_of(frame + d32_base(1'000), d32_event(0, 0)), loss(LossReason::event_not_later, 28));
  EXPECT_THAT(losses_of(frame, bytes({0, 0, 0, 0})), loss(LossReason::unknown_word, 16));
}

TEST(PayloadAccount, BytesOfTheBreakingWordThatAreSearchedAgainGoBack) {
  Accounted capture = delta32();
  capture.feed(d32_base(1'000) + d32_event(0, 0) + bytes({0, 0, 0xEB, 0x5A}) + bytes({0x55}));
  EXPECT_EQ(capture[PayloadClass::broken_words], 2u);
  EXPECT_EQ(capture.pending(), 3u);
  capture.feed(bytes({0xAA}));
  EXPECT_EQ(capture[PayloadClass::sync_words], 8u);
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::unknown_word, 16, 2}));
}

TEST(PayloadAccount, CountsTagsBetweenALossOfSyncAndTheirChannelsNextBase) {
  Accounted capture = delta32();
  capture.feed(d32_base(1'000) + d32_event(0, 0) + d32_base(1'000) + d32_event(1, 0) + bytes({0, 0, 0, 0}));
  capture.feed(d32_base(5'000) + d32_event(0, 0) + d32_event(1, 1) + d32_event(1, 1));
  EXPECT_EQ(capture.account.unanchored(), 2u);
  EXPECT_THAT(capture.told.channels, ElementsAre(0));
  capture.feed(d32_base(6'000) + d32_event(1, 0) + d32_event(1, 1));
  EXPECT_EQ(capture.account.unanchored(), 2u);
  EXPECT_THAT(capture.told.channels, ElementsAre(0, 1));
}

Accounted packed(const PackedSetup& setup) {
  return Accounted(packed_decoder(setup).header);
}

TEST(PayloadAccount, CountsPackedBitsByWhatTheyWere) {
  Accounted capture = packed({.channel_mask = 0x3, .delta_bits = 16});
  PackedWriter payload(16);
  payload.bits(0x1FFFFFFF, 29).anchor(0, 5'000).anchor(1, 5'000).data(0, 10).overflow(1, 2).data(1, 20);
  capture.feed(payload.bytes());
  EXPECT_EQ(capture[PayloadClass::before_lock], 29u);
  EXPECT_EQ(capture[PayloadClass::sync], 2u * 4 * 19);
  EXPECT_EQ(capture[PayloadClass::data], 4u * 19);
  EXPECT_EQ(capture[PayloadClass::overflow], 19u);
  EXPECT_EQ(capture.pending(), 8 * payload.bytes().size() - payload.bit_count());
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 29}));
  capture.finish();
  EXPECT_EQ(capture[PayloadClass::padding], 8 * payload.bytes().size() - payload.bit_count());
  EXPECT_EQ(capture.pending(), 0u);
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 29}));
}

// Records of 19 bits: the third one, which costs the lock, ends at bit 57, so 1 bit of it goes back.
TEST(PayloadAccount, BitsOfTheBreakingRecordThatAreSearchedAgainGoBack) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 16});
  capture.decoder.packed_locked = true;
  capture.account.framed();
  capture.feed(PackedWriter(16).data(0, 1).overflow(0, 1).data(3, 1).data(0, 7).bytes());
  EXPECT_EQ(capture[PayloadClass::data_without_time], 19u);
  EXPECT_EQ(capture[PayloadClass::overflow], 19u);
  EXPECT_EQ(capture[PayloadClass::broken_records], 18u);
  EXPECT_EQ(capture.pending(), 80u - 56);
  EXPECT_EQ(capture.account.untimed_at_start(), 19u);
  capture.finish();
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::no_time, 0, 19},
                                            PayloadLoss{LossReason::inactive_channel, 38, 80 - 38}));
  EXPECT_EQ(capture.account.lost(), (LossTally{1, 80 - 38}));
}

// Records of 4 bits: the breaking one ends at bit 7 of a byte, so all of it and 3 bits of what was before go back.
TEST(PayloadAccount, BitsBeforeANarrowBreakingRecordGoBackToo) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 1});
  capture.decoder.packed_locked = true;
  capture.decoder.bit_offset = 3;
  capture.account.passed(PayloadClass::before_lock, 3);
  capture.account.framed();
  capture.feed(PackedWriter(1).zeros(3).data(3, 0).zeros(1).bytes());
  EXPECT_EQ(capture[PayloadClass::before_lock], 0u);
  EXPECT_EQ(capture[PayloadClass::broken_records], 0u);
  EXPECT_EQ(capture.pending(), 8u);
}

/// Records of 4 bits from bit 3 on; the third costs the lock. The search goes on from the byte that it ends in: 7
/// bits are looked at again, the third record's 4 and 3 of the one before.
Accounted broken_at_third_record(const PackedWriter& payload) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 1});
  capture.decoder.packed_locked = true;
  capture.decoder.bit_offset = 3;
  capture.decoder.pk_has_time[0] = true;
  capture.feed(payload.bytes());
  EXPECT_EQ(capture[PayloadClass::broken_records], 0u);
  EXPECT_EQ(capture.account.framings_lost(LossReason::inactive_channel), 1u);
  return capture;
}

TEST(PayloadAccount, BitsThatASearchLooksAtAgainAreTakenFromTheRecordBeforeTheBrokenOne) {
  const auto start = [] { return PackedWriter(1).zeros(3).data(0, 1); };
  for (const unsigned more_bytes : {0u, 16u}) {  // with and without room for loads of 8 bytes
    const Accounted after_tag = broken_at_third_record(start().data(0, 1).data(3, 0).zeros(8 * more_bytes));
    EXPECT_EQ(after_tag.tags.size(), 2u);
    EXPECT_EQ(after_tag[PayloadClass::data], 5u);
    const Accounted after_overflow = broken_at_third_record(start().overflow(0, 0).data(3, 0).zeros(8 * more_bytes));
    EXPECT_EQ(after_overflow.tags.size(), 1u);
    EXPECT_EQ(after_overflow[PayloadClass::data], 4u);
    EXPECT_EQ(after_overflow[PayloadClass::overflow], 1u);
  }
}

TEST(PayloadAccount, WhatNarrowRecordsReadInThePaddingIsNoLossOfASoundCapture) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 3});
  capture.decoder.packed_locked = true;
  capture.account.framed();
  capture.feed(PackedWriter(3).overflow(0, 1).overflow(0, 1).overflow(0, 1).data(3, 0).bytes()).finish();
  EXPECT_EQ(capture.account.framings_lost(LossReason::inactive_channel), 1u);
  EXPECT_EQ(capture.account.breaks_in_lost(), 0u);
  EXPECT_EQ(capture.account.lost(), LossTally{});
}

TEST(PayloadAccount, RecordsWithoutATimeAtTheStartAreNoLossEvenInTheLastByte) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 3});
  capture.decoder.packed_locked = true;
  capture.account.framed();
  capture.feed(PackedWriter(3).data(0, 1).data(0, 1).data(0, 1).data(0, 1).bytes()).finish();
  EXPECT_EQ(capture.account.untimed_at_start(), 24u);
  EXPECT_EQ(capture.account.lost(), LossTally{});
}

TEST(PayloadAccount, BytesThatAreTrimmedWhileNothingAlignsBelongToTheLead) {
  Accounted capture = packed({.channel_mask = 0x1, .delta_bits = 16});
  capture.feed(Bytes(70'000, 0));
  EXPECT_EQ(capture[PayloadClass::trimmed], 8u * (70'000 - 4'096));
  EXPECT_EQ(capture.pending(), 8u * 4'096);
  capture.finish();
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 8 * 70'000}));
}

TEST(PayloadAccount, ADiscardedCallTakesBackItsTagsAndLosses) {
  Accounted capture = packed({.mode = StreamMode::internal, .channel_mask = 0x3, .delta_bits = 8});
  capture.decoder.packed_locked = true;
  capture.account.framed();
  PackedWriter payload(8);
  payload.data(1, 1).anchor(0, 1);
  for (int i = 0; i < 5'000; ++i) payload.data(0, 1);
  capture.feed(payload.bytes());
  EXPECT_TRUE(capture.tags.empty());
  EXPECT_EQ(capture.account.tags(), 0u);
  EXPECT_EQ(capture.account.losses(LossReason::no_time), LossTally{});
  EXPECT_EQ(capture[PayloadClass::sync], 0u);
  // 5009 records of 11 bits: 55099, of which 3 are in the last byte and go back.
  EXPECT_EQ(capture[PayloadClass::discarded], 5'009u * 11 - 3);
  EXPECT_EQ(capture.account.framings_lost(LossReason::imbalance), 1u);
  capture.finish();
  EXPECT_EQ(capture.account.losses(LossReason::imbalance), (LossTally{1, 8 * payload.bytes().size()}));
}

TEST(PayloadAccount, APackedPayloadWhoseRecordsAreTooWideStaysPending) {
  Accounted capture = packed({.delta_bits = 40});
  capture.feed(Bytes(100'000, 0)).finish();
  EXPECT_EQ(capture.pending(), 800'000u);
  EXPECT_THAT(capture.told.all, ElementsAre(PayloadLoss{LossReason::lead, 0, 800'000}));
}

/// Keeps what it is told of.
struct Heard : NoObserver {
  void tag(unsigned channel) { channels.push_back(channel); }
  std::vector<unsigned> channels;
};

TEST(ObserverPair, TellsBoth) {
  Heard first;
  Heard second;
  ObserverPair both(first, second);
  StreamDecoder decoder(header_of(StreamFormat::raw64));
  std::vector<TimeTag> tags;
  TagList list(tags);
  decoder.feed(ps_record(2, 1) + ps_record(3, 1), list, both);
  EXPECT_EQ(tags.size(), 2u);
  EXPECT_THAT(first.channels, ElementsAre(2, 3));
  EXPECT_THAT(second.channels, ElementsAre(2, 3));
}

TEST(ObserverPair, IsToldOfAFileToo) {
  const TempDirectory directory;
  const std::string path = (directory / "a.tagcap").string();
  write_file(path, capture_bytes(R"({"stream_format":"raw64"})", ps_record(2, 1) + kStray + ps_record(3, 1)));
  StreamFileReader reader;
  reader.open(path);
  ToldLosses told;
  PayloadAccount<ToldLosses> account(reader.header(), told);
  std::vector<TimeTag> tags;
  TagList list(tags);
  while (reader.decode_next_chunk(5, list, account)) {
  }
  EXPECT_EQ(tags.size(), 2u);
  EXPECT_EQ(account.size(PayloadClass::records), 16u);
  EXPECT_THAT(told.all, ElementsAre(PayloadLoss{LossReason::foreign, 8, 3}));
}

TEST(LossReason, HasANameEach) {
  std::vector<std::string_view> names;
  for (std::size_t i = 0; i < kLossReasons; ++i) names.push_back(to_text(static_cast<LossReason>(i)));
  EXPECT_THAT(names,
              ElementsAre("lead", "cut", "no_time", "foreign", "no_base_low", "no_base_high", "extension_after_base",
                          "stray_base", "event_not_later", "unknown_word", "inactive_channel", "sync_channel",
                          "sync_flag", "anchor_back", "anchor_step", "gap", "imbalance"));
}

/// A packed payload whose lead has ended, with so many bits of its only byte left.
struct PackedWithRest : Accounted {
  explicit PackedWithRest(std::uint64_t bits) : Accounted(header_of(StreamFormat::packed_delta)) {
    decoder.pending_bytes.push_back(0);
    decoder.bit_offset = 8 - bits;
    account.framed();
  }
};

TEST(PayloadAccount, ARestOfUpToSevenBitsIsPadding) {
  for (const std::uint64_t bits : {1u, 7u}) {
    PackedWithRest rest(bits);
    rest.finish();
    EXPECT_EQ(rest[PayloadClass::padding], bits);
    EXPECT_EQ(rest.account.losses(LossReason::cut), (LossTally{0, 0}));
  }
  PackedWithRest rest(8);
  rest.finish();
  EXPECT_EQ(rest[PayloadClass::padding], 0u);
  EXPECT_EQ(rest.account.losses(LossReason::cut), (LossTally{1, 8}));
}

TEST(PayloadAccount, ALockLostInTheLastSevenBitsIsNoLoss) {
  for (const std::uint64_t bits : {7u, 8u}) {
    PackedWithRest rest(bits);
    rest.account.lock_lost({.reason = LossReason::gap});
    rest.finish();
    EXPECT_EQ(rest.account.losses(LossReason::gap), (LossTally{1, bits}));
    EXPECT_EQ(rest.account.lost(), bits == 7 ? (LossTally{0, 0}) : (LossTally{1, 8}));
    EXPECT_EQ(rest.account.breaks_in_lost(), bits == 7 ? 0u : 1u);
  }
}

// Before the first loss of sync an event without a time belongs to the start; after it, it is lost.
TEST(PayloadAccount, EventsWithoutATimeAreLostOnlyAfterALossOfSync) {
  Accounted payload(header_of(StreamFormat::delta32));
  payload.feed(d32_base(1'000) + d32_event(0, 0) + d32_event(1, 5));
  EXPECT_EQ(payload.account.untimed_at_start(), 4u);
  EXPECT_EQ(payload.account.lost(), LossTally{});
  payload.feed(Bytes(4, 0) + d32_base(2'000) + d32_event(0, 0) + d32_event(1, 5)).finish();
  EXPECT_EQ(payload.account.untimed_at_start(), 4u);
  EXPECT_EQ(payload.account.losses(LossReason::no_time), (LossTally{2, 8}));
  EXPECT_EQ(payload.account.lost(), (LossTally{2, 8}));  // the word and the second event
}

TEST(PayloadAccount, TagsAreUnanchoredFromTheFirstOfSeveralLossesOfSync) {
  Accounted stream(header_of(StreamFormat::delta32));
  auto& account = stream.account;
  account.framed();
  account.tag(0);
  for (int loss = 0; loss < 2; ++loss) {
    account.sync_lost(LossReason::unknown_word);
    account.framed();
    account.tag(0);
    account.tag(0);
  }
  EXPECT_EQ(account.unanchored(), 4u);
  account.anchored(0);
  account.tag(0);
  EXPECT_EQ(account.unanchored(), 4u);
}

}  // namespace
