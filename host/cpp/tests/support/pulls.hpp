#pragma once
// Are errors what they say? Differences to what is true, in units of the errors told, over many simulations.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>

namespace orvo::test {

/// Differences to what is true. In units of the errors told they have mean 0 and width 1 if errors are right.
class Pulls {
 public:
  void add(double difference, double error) {
    ++count_;
    sum_ += difference / error;
    squares_ += difference / error * (difference / error);
    plain_sum_ += difference;
    plain_squares_ += difference * difference;
  }
  int count() const { return count_; }
  double mean() const { return sum_ / count_; }
  double width() const { return std::sqrt(squares_ / count_ - mean() * mean()); }
  /// The mean in units of the true spread instead: a count that comes out low tells a small error, too.
  double bias() const {
    const double plain = plain_sum_ / count_;
    return plain / std::sqrt(plain_squares_ / count_ - plain * plain);
  }

 private:
  int count_ = 0;
  double sum_ = 0;
  double squares_ = 0;
  double plain_sum_ = 0;
  double plain_squares_ = 0;
};

/// Mean 0 and width 1 within 5 %, what the number of simulations leaves uncertain, which is four standard deviations,
/// and how much lower a mean is known to be.
inline void expect_standard(const char* what, const Pulls& pulls, double known_mean = 0, double known_width = 1) {
  std::printf("  %s %+.3f/%.3f (%+.3f)", what, pulls.mean(), pulls.width(), pulls.bias());
  const double count = pulls.count();
  EXPECT_NEAR(pulls.mean(), known_mean, 0.05 + 4 / std::sqrt(count)) << what;
  EXPECT_NEAR(pulls.width(), known_width, 0.05 + 4 / std::sqrt(2 * count)) << what;
}

}  // namespace orvo::test
