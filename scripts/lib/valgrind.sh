# shellcheck shell=bash
# The dev build under Valgrind's memcheck: its test programs, and some captures that the simulator writes and the tool
# verifies, both under Valgrind.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

readonly memcheck='"valgrind" "--quiet" "--error-exitcode=99" "--leak-check=full" "--errors-for-leak-kinds=definite"'

# CTest entries for the programs on standard input, each line "<program> <lock or none>"; see orvo_add_tests. A program is
# started once: to translate its code takes Valgrind longer than most cases take.
programs_under_valgrind() {
  local program lock name
  while read -r program lock; do
    name=${program##*/}
    printf 'add_test([=[%s]=] %s "%s")\n' "$name" "$memcheck" "$program"
    if [[ $lock != none ]]; then
      printf 'set_tests_properties([=[%s]=] PROPERTIES RESOURCE_LOCK %s LABELS %s)\n' "$name" "$lock" "$lock"
    fi
  done
}

# Left out: what Valgrind cannot do. Its long double is a double, and an allocation that fails in it
# ends the program.
readonly tests_valgrind_cannot_run=(
  XcorrRms.RoundsTheMeanToADoubleFirst
  XcorrAtTheEndsOf64Bits.MoreBinsThanTheMemoryHoldsIsAnAllocationFailure
)

# Left out, too: recordings and damages by the dozen, streams and lists of megabytes, and arithmetic that touches no memory,
# which would take half an hour. Shorter ones run the same code.
readonly tests_too_long_for_valgrind=(
  CaptureFacts.AreThoseOfTheSlowWayWhereTagsAreMany
  Coincidences.DoNotPileUpBesideASilentChannel
  Converter.NeedsNoMoreMemoryForMoreTags
  Correlation.OfACaptureOfAnySizeTakesLittleMemory
  Correlation.OfALongCaptureInOrderIsThatOfLists
  CorrelationComb.IsFoundInNearlyAllRecordingsWithTheErrorItTells
  CorrelationComb.IsNotSeenInNoisePeaksAndDips
  CorrelationComb.NumbersHaveMeanZeroAndWidthOne
  CorrelationSignificance.OfUnrelatedLightIsNeverTooHigh
  Delta32File.AFrameAcrossTheEndOfAReadDecodesAtEverySplit
  Delta32File.WordsAcrossTheEndsOfReadsDecodeOnce
  DelayCandidates.StandOutBySigmasThatOnlyTheShareAndTheBinsDecide
  '*DelayBinningWith/*.AgreesWithTheDivision*'
  EventSource.GivesEachChannelItsRate
  EventSource.SpreadsABackgroundEvenly
  Exponential.IsTheLogarithmOfTheNumberDrawn
  FalseAlarms.OfUnrelatedChannelsAreRare
  FarDelay.BeyondReachOrOfUnrelatedLightIsNone
  FarDelay.IsFoundToTheWidthOfThePeakAnywhereWithinReach
  FarDelay.IsFoundWhenThePeakIsAboutAsWideAsABin
  FarDelay.OfLightThatWasOnForAMomentIsFoundWhenever
  '*FarDelayLimits.AreKept*'
  Normalised.IntervalsOfFewCountsMissTheTruthNoMoreOftenThanTheySay
  OffsetStream.HoldsLittleWhileAChannelIsSilent
  OffsetStream.OfPiecesIsThatOfTheWholeLists
  PackedAlignmentChoice.ATrialEndsAfter65536Bytes
  PackedAlignmentChoice.SeveralChannelsAreTriedFromByte0To64
  PackedDeltaEncoder.BridgesSilencesThatReadAsWrapsWithAnAnchor
  PackedDeltaEncoder.DecodesToTheSameTimesAcrossManyWrapsAndLongGaps
  PackedLock.AStreamThatNeverAlignsStaysBounded
  PackedRobustness.StaysBoundedWithoutAnAlignment
  PairSearch.DoesNotTakeAnInstrumentsGridForAPattern
  PairSearch.FindsTheDelayOnAGridWithinAnyReach
  PassSource.ComesToWhatListsComeTo
  PayloadAccountModel.PackedDelta
  '*PulsedLight.*'
  RateSegments.FollowDriftsThatSteadyRatesMiss
  Raw64Blocks.QuietStreamsWithAnEventNowAndThen
  '*RecordedPulls.*'
  SingleEmitter.IsToldAsADip
  SortTimes.SortsLongLists
  StreamFileReaderTest.HeaderTextOfSeveralMebibytesIsReadWhole
  TagCollection.WithoutALimitEveryTagOfALongCaptureIsListed
  XcorrStream.ATagWithinReachIsCountedAndALaterOneIsReported
  XcorrStream.CountsAllSixPairsOfALongStreamAndHoldsLittle
)

readonly encodings=(
  "--encoding raw64"
  "--encoding raw64 --tag-format raw_cf"
  "--encoding delta32"
  "--encoding packed_delta --start-bit 3"
  "--encoding packed_delta --mode internal --channels 0,1,2,3 --delta-bits 7"
)
readonly damages=(
  ""
  "--front-garbage 40 --garbage 1000 --garbage-at 9000 --cut-tail 3"
  "--flip-every 700"
)

# words TEXT: its words, each in quotes of CMake.
words() {
  local word text=()
  read -ra text <<<"$1"
  for word in ${text[@]+"${text[@]}"}; do printf ' "%s"' "$word"; done
}

# A capture of each encoding, whole and damaged: one entry writes it, the next verifies it.
captures_under_valgrind() {
  local encoding damage name capture number=0
  for encoding in "${encodings[@]}"; do
    for damage in "${damages[@]}"; do
      name="capture_$((++number))" capture="$root/build/valgrind/capture_$number.tagcap"
      printf 'add_test([=[simulate_%s]=] %s "%s" "%s" "--tags" "6000"%s)\n' "$name" "$memcheck" \
        "$root/build/dev/bin/vq_simulate_stream_file" "$capture" "$(words "$encoding $damage")"
      printf 'set_tests_properties([=[simulate_%s]=] PROPERTIES FIXTURES_SETUP %s)\n' "$name" "$name"
      printf 'add_test([=[verify_%s]=] %s "%s" "%s" "--out-prefix=%s")\n' "$name" "$memcheck" \
        "$root/build/dev/test_bin/vq_verify_stream_file_xcorr" "$capture" "$capture"
      printf 'set_tests_properties([=[verify_%s]=] PROPERTIES FIXTURES_REQUIRED %s RESOURCE_LOCK product_root' "$name" "$name"
      printf ' LABELS product_root)\n'
    done
  done
}

all_that_valgrind_can_run() {
  local IFS=: name
  for name in "${tests_valgrind_cannot_run[@]}" "${tests_too_long_for_valgrind[@]}"; do
    if [[ $name != *'*'* ]] && ! grep -rqE "^TEST(_F|_P)?\\(${name/./, }\\)" "$root/host/cpp/tests"; then
      say "no test is called $name, which Valgrind is to leave out"
      return 1
    fi
  done
  printf '%s' "-${tests_valgrind_cannot_run[*]}:${tests_too_long_for_valgrind[*]}"
}

# run_under_valgrind [CTEST ARGUMENT...]: with a twentieth of the random comparisons and simulated recordings of dev, which
# take 25 times as long here. Tests still require that every kind of input occurs.
run_under_valgrind() {
  local -r programs=$root/build/dev/under_valgrind.txt
  local -r entries=$root/build/valgrind/CTestTestfile.cmake
  local filter
  mkdir -p -- "$root/build/valgrind" &&
    { programs_under_valgrind <"$programs" && captures_under_valgrind; } >"$entries" &&
    filter=$(all_that_valgrind_can_run) &&
    ORVO_TEST_ROUNDS=${ORVO_TEST_ROUNDS:-0.05} GTEST_FILTER=$filter \
      ctest --test-dir "$root/build/valgrind" --output-on-failure --no-tests=error -j "${jobs:-2}" "$@"
}

# In two parts, the second of which writes below the product root of the dev build, as its tests do; it needs captures
# that the first has written.
run_under_valgrind_beside_dev() { run_under_valgrind --label-exclude product_root; }
run_under_valgrind_after_dev() { run_under_valgrind --label-regex product_root --fixture-exclude-any .; }
