#pragma once
// Simulating a capture and verifying it, both as a user would, and what the two programs say of it.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/product_root.hpp"

namespace orvo::test {

/// The key=value lines of a text.
class Told {
 public:
  explicit Told(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      const auto equals = line.find('=');
      if (equals != line.npos) values_[line.substr(0, equals)] = line.substr(equals + 1);
    }
  }

  bool has(const std::string& key) const { return values_.count(key) != 0; }
  const std::string& text(const std::string& key) const { return values_.at(key); }
  std::int64_t number(const std::string& key) const { return std::stoll(values_.at(key)); }
  double decimal(const std::string& key) const { return std::stod(values_.at(key)); }

 private:
  std::map<std::string, std::string> values_;
};

/// What a verification says.
struct Verified {
  std::int64_t tags = 0;
  std::int64_t channel_tags[4] = {};
  std::int64_t coincidences = 0;
  std::int64_t peak_ps = 0;
  double mean_ps = 0;
  double sigma_ps = 0;
  double fwhm_ps = 0;
};

class SimulatedCapture : public ProductRoot {
 protected:
  ProgramResult simulator(std::vector<std::string> arguments) {
    return run({.program = ORVO_TEST_SIMULATOR, .arguments = std::move(arguments)});
  }

  /// Simulates cwd()/c.tagcap and returns the answer.
  Told simulate(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "c.tagcap");
    const ProgramResult result = simulator(std::move(arguments));
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    return Told(result.out);
  }

  /// Verifies cwd()/c.tagcap as the answer tells.
  Verified verified(const Told& answer, int bin_ps = 8) {
    const ProgramResult result = verify({"c.tagcap", answer.text("channel_a"), answer.text("channel_b"),
                                         "--offset=" + answer.text("offset_ps"), "--range=" + answer.text("range_ps"),
                                         "--bin=" + std::to_string(bin_ps), "--out-prefix=v"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.err, "");
    const std::string json = read_file(cwd() / "v.json");
    Verified found;
    found.tags = static_cast<std::int64_t>(member(json, "decoded_tags"));
    for (std::size_t c = 0; c < 4; ++c) {
      found.channel_tags[c] = static_cast<std::int64_t>(member(json, "ch" + std::to_string(c)));
    }
    found.coincidences = static_cast<std::int64_t>(member(json, "total_coincidences"));
    found.peak_ps = static_cast<std::int64_t>(member(json, "peak_ps"));
    found.mean_ps = member(json, "mean_ps");
    found.sigma_ps = member(json, "sigma_ps");
    found.fwhm_ps = member(json, "fwhm_ps");
    return found;
  }

 private:
  static double member(const std::string& json, const std::string& key) {
    const auto at = json.find('"' + key + "\":");
    if (at == json.npos) throw std::runtime_error("no " + key + " in the report");
    return std::stod(json.substr(at + key.size() + 3));
  }
};

}  // namespace orvo::test
