#include <pybind11/pybind11.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <tuple>
#include <utility>
#include <vector>

#include "arrays.hpp"
#include "bindings.hpp"
#include "orvo/timing/pair_statistics.hpp"
#include "orvo/timing/sorted_times.hpp"

namespace orvo::timing::python {

namespace {

std::span<const double> numbers_of(const py::array& array, const char* name) {
  detail::require_list(array, py::dtype::of<double>(), name);
  return {static_cast<const double*>(array.data()), static_cast<std::size_t>(array.size())};
}

XcorrWindow window_of(const std::tuple<std::int64_t, std::int64_t, std::int64_t>& window) {
  return {std::get<0>(window), std::get<1>(window), std::get<2>(window)};
}

// What becomes of the library's records: (value, error) of an estimate, None of what is missing, a dict of the rest.
py::object object_of(const Estimate& estimate) {
  return py::make_tuple(estimate.value, estimate.error);
}
py::object object_of(const NormalisedCount& g2) {
  return py::make_tuple(g2.g2, g2.error);
}

py::object object_of(const CorrelationPeak& peak);
py::object object_of(const CorrelationComb& comb);

template <class Value>
py::object object_of(const std::optional<Value>& value) {
  return value ? py::object(object_of(*value)) : py::object(py::none());
}

const char* word_of(CorrelationSide side) {
  return side == CorrelationSide::peak ? "peak" : "dip";
}

const char* word_of(PairVerdict verdict) {
  switch (verdict) {
    case PairVerdict::peak:
      return "peak";
    case PairVerdict::dip:
      return "dip";
    case PairVerdict::comb:
      return "comb";
    case PairVerdict::none:
      break;
  }
  return "none";
}

py::object object_of(const CorrelationPeak& peak) {
  py::dict fields;
  fields["side"] = word_of(peak.side);
  fields["cut"] = peak.cut;
  fields["pairs"] = object_of(peak.pairs);
  fields["background_pairs"] = object_of(peak.background_pairs);
  fields["place_ps"] = object_of(peak.place_ps);
  fields["fwhm_ps"] = object_of(peak.fwhm_ps);
  fields["narrowest_ps"] = peak.narrowest_ps;
  fields["g2"] = object_of(peak.g2);
  fields["accidental_ratio"] = object_of(peak.accidental_ratio());
  return fields;
}

py::object object_of(const CorrelationComb& comb) {
  py::dict fields;
  fields["log10_probability"] = comb.probability.log10();
  fields["period_ps"] = object_of(comb.period_ps);
  fields["tooth_ps"] = comb.tooth_ps;
  fields["level"] = object_of(comb.level);
  fields["pairs"] = object_of(comb.pairs);
  fields["teeth"] = comb.teeth;
  return fields;
}

py::dict dict_of(const PairJudgement& judgement) {
  py::dict fields;
  fields["verdict"] = word_of(judgement.verdict);
  fields["significant"] = judgement.significant;
  fields["ambiguous"] = judgement.ambiguous;
  fields["cut"] = judgement.cut;
  fields["log10_probability"] = judgement.probability.log10();
  fields["sigmas"] = judgement.sigmas();
  fields["level"] = py::make_tuple(judgement.background.level, judgement.background.error);
  fields["level_measured"] = judgement.background.measured;
  fields["differs_from_chance"] = judgement.background.differs_from_chance();
  fields["peak"] = object_of(judgement.peak);
  fields["comb"] = object_of(judgement.comb);
  return fields;
}

XcorrHistogram histogram_of(const py::array& counts, const XcorrWindow& window) {
  const auto numbers = times_of(counts, "counts");
  XcorrHistogram histogram = xcorr_histogram_sorted({}, {}, window);
  if (numbers.size() != histogram.counts.size()) throw py::value_error("counts: not as many as the window has bins");
  histogram.counts.assign(numbers.begin(), numbers.end());
  return histogram;
}

using WindowTuple = std::tuple<std::int64_t, std::int64_t, std::int64_t>;
using ExtentTuple = std::tuple<std::int64_t, std::int64_t, std::uint64_t>;

/// Of lists: with what only their times tell.
py::dict statistics_of_lists(const py::array& counts, const py::array& a, const py::array& b,
                             const WindowTuple& window_tuple) {
  const XcorrWindow window = window_of(window_tuple);
  const XcorrHistogram histogram = histogram_of(counts, window);
  const auto a_ps = times_of(a, "a");
  const auto b_ps = times_of(b, "b");
  PairStatistics statistics;
  {
    const py::gil_scoped_release unlocked;
    statistics = pair_statistics(histogram, SortedTimes(a_ps), SortedTimes(b_ps), window);
  }
  py::dict fields = dict_of(statistics.judgement);
  fields["expected"] = array_of(std::move(statistics.bins.expected));
  fields["drifting"] = statistics.drifting;
  fields["too_short"] = statistics.too_short;
  fields["share_a"] = object_of(statistics.share_a);
  fields["share_b"] = object_of(statistics.share_b);
  return fields;
}

/// Of counts beside an expectation that is known.
py::dict judgement_of_counts(const py::array& counts, const py::array& expected, const WindowTuple& window_tuple) {
  const XcorrWindow window = window_of(window_tuple);
  const XcorrHistogram histogram = histogram_of(counts, window);
  const auto numbers = numbers_of(expected, "expected");
  if (numbers.size() != histogram.counts.size()) throw py::value_error("expected: not as many as there are counts");
  PairJudgement judgement;
  {
    const py::gil_scoped_release unlocked;
    judgement = judge_correlation(correlation_bins(histogram, window, {numbers.begin(), numbers.end()}));
  }
  return dict_of(judgement);
}

/// Pairs by chance in each bin, of channels whose rates are steady.
py::array steady_expectation(const ExtentTuple& a, const ExtentTuple& b, const WindowTuple& window) {
  const auto extent = [](const ExtentTuple& tuple) {
    return ChannelExtent{std::get<0>(tuple), std::get<1>(tuple), std::get<2>(tuple)};
  };
  std::vector<double> expected;
  {
    const py::gil_scoped_release unlocked;
    expected = chance_pairs(recording_of(extent(a), extent(b)), window_of(window));
  }
  return array_of(std::move(expected));
}

/// g2 of each bin and its error; NaN where nothing is expected.
py::tuple normalised_counts(const py::array& counts, const py::array& expected) {
  const auto numbers = times_of(counts, "counts");
  const auto by_chance = numbers_of(expected, "expected");
  if (numbers.size() != by_chance.size()) throw py::value_error("expected: not as many as there are counts");
  constexpr double kNone = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> values(numbers.size(), kNone);
  std::vector<double> errors(numbers.size(), kNone);
  for (std::size_t bin = 0; bin < numbers.size(); ++bin) {
    const auto g2 = normalised(static_cast<double>(numbers[bin]), by_chance[bin]);
    if (!g2) continue;
    values[bin] = g2->g2;
    errors[bin] = g2->error;
  }
  return py::make_tuple(array_of(std::move(values)), array_of(std::move(errors)));
}

}  // namespace

void bind_statistics(py::module_& module) {
  module.def("statistics_of_lists", &statistics_of_lists);
  module.def("judgement_of_counts", &judgement_of_counts);
  module.def("steady_expectation", &steady_expectation);
  module.def("normalised_counts", &normalised_counts);
}

}  // namespace orvo::timing::python
